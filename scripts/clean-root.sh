# Shared by the scripts that try things out in a bare Debian: makes it, and runs things in it. Sourced after common.sh,
# by a process that is root and has a mount namespace of its own.
# shellcheck shell=bash disable=SC2154,SC2034

clean_root=$logs/clean-root

# The Debian mirrors that this machine's apt knows, of its own release.
apt_mirrors() {
    # shellcheck disable=SC1091
    . /etc/os-release
    # shellcheck disable=SC2016 # apt's own
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' 'Origin: Debian' |
        grep -E "^deb [^ ]+ $VERSION_CODENAME" | sort -u
}

make_bare_debian() {
    local mirrors=$logs/clean-root.list
    apt_mirrors >"$mirrors"
    [ -s "$mirrors" ] || {
        echo "apt knows no Debian mirror; run apt-get update"
        return 1
    }
    apt-config dump --format '%F "%v";%n' Acquire >"$logs/clean-root.conf"
    mmdebstrap --mode=root --variant=apt --aptopt="$logs/clean-root.conf" --include="$1" \
        "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$clean_root.tar" "$mirrors"
}

# make_clean_root PACKAGE,...: a bare Debian with these packages, sudo, and an ordinary user called clerk, who may use
# it. Where no mirror can be reached it is a copy of this machine, on which nothing is really changed, and which may have
# more than these packages. Leaves in $root_kind what it is.
make_clean_root() {
    rm -rf "$clean_root" && mkdir -p "$clean_root"
    if [ -f "$clean_root.tar" ] || quietly clean-root make_bare_debian "sudo,$1"; then
        root_kind="a bare Debian"
        tar --extract --numeric-owner --file "$clean_root.tar" --directory "$clean_root"
        cp /etc/resolv.conf "$clean_root/etc/resolv.conf"
    else
        root_kind="a copy of this machine"
        rm -f "$clean_root.tar"
        local upper=$logs/clean-root-changes
        mkdir -p "$upper"
        mount -t tmpfs tmpfs "$upper" && mkdir "$upper/upper" "$upper/work" &&
            mount -t overlay overlay -o "lowerdir=/,upperdir=$upper/upper,workdir=$upper/work" "$clean_root" || return
    fi
    mount -t proc proc "$clean_root/proc"
    mount -t tmpfs tmpfs "$clean_root/tmp" && chmod 1777 "$clean_root/tmp"
    echo "127.0.0.1 localhost $(uname -n)" >"$clean_root/etc/hosts"
    echo 'APT::Get::Assume-Yes "true";' >"$clean_root/etc/apt/apt.conf.d/90assume-yes" # nobody is there to be asked
    chroot "$clean_root" useradd --create-home --shell /bin/bash clerk
    mkdir -p "$clean_root/etc/sudoers.d"
    echo 'clerk ALL=(ALL) NOPASSWD: ALL' >"$clean_root/etc/sudoers.d/clerk"
    printf 'exec env -i HOME=/home/clerk USER=clerk PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin %s\n' \
        'TERM=dumb LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"' >"$clean_root/tmp/clean-environment"
}

# in_root COMMAND...: as root, in the clean root.
in_root() {
    chroot "$clean_root" sh /tmp/clean-environment "$@"
}

# as_clerk COMMAND...: as an ordinary user, at home.
as_clerk() {
    chroot "$clean_root" runuser -u clerk -- sh /tmp/clean-environment sh -c 'cd && exec "$@"' sh "$@"
}

# files_of_root: what stands in the clean root, but for what its package manager and whoever works there write.
files_of_root() {
    (cd "$clean_root" && find . -xdev \( -path ./proc -o -path ./sys -o -path ./dev -o -path ./tmp -o -path ./home \
        -o -path ./root -o -path ./run -o -path ./var/lib/dpkg -o -path ./var/lib/apt -o -path ./var/cache \
        -o -path ./var/log \) -prune -o -print | sort)
}

# readme_block HEADING [LANGUAGE]: the blocks of README below that heading, those in LANGUAGE or the shell's.
readme_blocks() {
    awk -v heading="## $1" -v fence='```'"${2:-}" '
        /^## / { inside = $0 == heading }
        inside && !block && /^```/ { block = 1; wanted = $0 == fence; next }
        block && /^```$/ { block = 0; next }
        block && wanted { print }
    ' "$root/README.md"
}
