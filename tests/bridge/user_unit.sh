#!/bin/bash
# The systemd unit under a live service manager of an ordinary user, in namespaces of its own: nothing of this machine's
# is touched. Arguments: build directory. Status 77: it cannot be tried here, and why.
set -eu
umask 022 # systemd complains of units that others may write

fail() {
    echo "user_unit: $*" >&2
    exit 1
}

skip() {
    echo "user_unit: not tried: $*"
    exit 77
}

# within SECONDS COMMAND...: repeats the command until it succeeds.
within() {
    local end=$((SECONDS + $1))
    shift
    until "$@" 2>/dev/null; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.05
    done
}

patience=60
uid=1000
self=$(readlink -f "${BASH_SOURCE[0]}")
files=/run/vxpad # what the unit needs, out of reach of what it is not to read
address=/run/user/$uid/vxpad-bridge/address

# As root of the namespaces: what an ordinary user finds on a machine that systemd has started.
make_machine() {
    local build=$1 group status=0
    mount -t tmpfs tmpfs /run
    mkdir -p "$files" /run/systemd/system /run/systemd/unit-root "/run/user/$uid"
    cp "$build/bin/vxpad-bridge" "$build"/libvxpadcom.so.0 "$build/bridge/vxpad-bridge.service" "$files"
    mount -t tmpfs tmpfs /home
    mount -t tmpfs tmpfs /tmp
    mkdir -p /home/user/.config/systemd/user
    touch /tmp/of-others
    mount -t cgroup2 cgroup2 /sys/fs/cgroup 2>/dev/null || skip "this machine lets nobody mount its control groups"
    group=$(mktemp -d /sys/fs/cgroup/vxpad-unit-XXXXXX 2>/dev/null) || skip "this user may not make control groups"
    echo $$ >"$group/cgroup.procs" || skip "this user may not move into a control group"
    HOME=/home/user XDG_RUNTIME_DIR=/run/user/$uid \
        unshare --user "--map-user=$uid" "--map-group=$uid" "$self" as-user || status=$?
    echo $$ >/sys/fs/cgroup/cgroup.procs
    echo 1 >"$group/cgroup.kill"
    within 10 grep -q '^populated 0$' "$group/cgroup.events" || true
    find "$group" -depth -type d -exec rmdir {} +
    exit "$status"
}

# What a unit with the bridge's restrictions can do.
probe() {
    cat <<'PYTHON'
import ctypes, mmap, os, resource, socket

runtime = os.environ["XDG_RUNTIME_DIR"]


def check(result):
    if result != 0:
        raise OSError


def tell(what, attempt):
    try:
        attempt()
        print(what, "done", flush=True)
    except OSError:
        print(what, "refused", flush=True)


tell("home", lambda: open(os.environ["HOME"] + "/file", "w"))
tell("runtime", lambda: open(runtime + "/file", "w"))
tell("own", lambda: open(runtime + "/vxpad-bridge/file", "w"))
tell("tmp", lambda: os.stat("/tmp/of-others"))
tell("loopback", lambda: socket.create_server(("127.0.0.1", 0)))
tell("udev", lambda: socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 15))
tell("vsock", lambda: socket.socket(socket.AF_VSOCK, socket.SOCK_STREAM))
tell("code", lambda: mmap.mmap(-1, 4096, prot=mmap.PROT_WRITE | mmap.PROT_EXEC))
tell("namespace", lambda: check(ctypes.CDLL(None).unshare(0x10000000)))
tell("priority", lambda: os.setpriority(os.PRIO_PROCESS, 0, 5))
tell("devices", lambda: os.listdir("/dev/bus/usb") if os.path.isdir("/dev/bus/usb") else os.listdir("/dev"))
print("core", *resource.getrlimit(resource.RLIMIT_CORE), flush=True)
print("end", flush=True)
PYTHON
}

expected="home refused
runtime refused
own done
tmp refused
loopback done
udev done
vsock refused
code refused
namespace refused
priority refused
devices done
core 0 0
end"

state() {
    systemctl --user show --property "$1" --value "${2-vxpad-bridge}"
}

is_state() {
    [ "$(state "$1" "${3-vxpad-bridge}")" = "$2" ]
}

answers() {
    python3 -c 'import sys, urllib.request; urllib.request.urlopen(open(sys.argv[1]).read().strip())' "$address"
}

as_user() {
    local units=$HOME/.config/systemd/user first manager
    chmod 700 "$XDG_RUNTIME_DIR"
    sed "s,^ExecStart=[^ ]*,ExecStart=$files/vxpad-bridge," "$files/vxpad-bridge.service" >"$units/vxpad-bridge.service"
    printf '[Service]\nEnvironment=LD_LIBRARY_PATH=%s\n' "$files" >"$files/library"
    mkdir "$units/vxpad-bridge.service.d"
    cp "$files/library" "$units/vxpad-bridge.service.d/library.conf"
    probe >"$files/probe.py"
    sed -e "s,^ExecStart=.*,ExecStart=$(command -v python3) $files/probe.py," \
        -e "s,^Restart=.*,StandardOutput=append:$XDG_RUNTIME_DIR/probed," \
        "$units/vxpad-bridge.service" >"$units/probe.service"
    echo 'VXPAD_BRIDGE_OPTIONS=--port 0' >"$HOME/.config/vxpad-bridge.conf"

    systemd-analyze --user verify --man=no "$units/vxpad-bridge.service" >"$files/verified" 2>&1 || true
    [ ! -s "$files/verified" ] || fail "$(cat "$files/verified")"

    # Not what this machine's users have started with theirs.
    printf '[Unit]\nDescription=nothing else\n' >"$units/empty.target"
    "$manager_program" --user --unit=empty.target >"$files/log" 2>&1 &
    manager=$!
    within "$patience" systemctl --user --quiet is-active empty.target ||
        fail "the service manager: $(tail -n 5 "$files/log")"

    systemctl --user start vxpad-bridge
    within "$patience" test -s "$address" || fail "no address: $(systemctl --user status vxpad-bridge)"
    [ "$(stat -c %a "$address" "${address%/*}" | tr '\n' ' ')" = "600 700 " ] || fail "others can read the address"
    answers || fail "nobody answers at the address"
    first=$(cat "$address")

    kill -KILL "$(state MainPID)"
    answers_anew() { answers && [ "$(cat "$address")" != "$first" ]; }
    within "$patience" answers_anew || fail "nobody answers at a second address"

    systemctl --user stop vxpad-bridge
    within 10 test ! -e "${address%/*}" || fail "the address outlives the bridge"
    is_state Result success || fail "it ended with $(state Result)"

    echo 'VXPAD_BRIDGE_OPTIONS=--nothing' >"$HOME/.config/vxpad-bridge.conf"
    systemctl --user start vxpad-bridge
    within "$patience" is_state ActiveState failed || fail "a wrong option is tried again and again"

    systemctl --user start probe
    within "$patience" grep -q '^end$' "$XDG_RUNTIME_DIR/probed" || fail "no probe: $(systemctl --user status probe)"
    [ "$(cat "$XDG_RUNTIME_DIR/probed")" = "$expected" ] ||
        fail "what the unit may do: $(diff <(echo "$expected") "$XDG_RUNTIME_DIR/probed")"
    kill "$manager"
    wait "$manager" || true
    echo "user_unit: started, answered, was started again, stopped; everything that it is to be refused was refused"
}

manager_program=/lib/systemd/systemd
case ${1-} in
make-machine) make_machine "$2" ;;
as-user) as_user ;;
*)
    if [ ! -x "$manager_program" ]; then
        [ -z "${VXPADCOM_REQUIRE_ALL-}" ] || fail "systemd is not installed (scripts/install-packages tests)"
        skip "systemd is not installed"
    fi
    namespaces=(unshare --user --map-root-user --mount --pid --fork --cgroup --mount-proc --kill-child)
    "${namespaces[@]}" true 2>/dev/null || skip "this machine lets an ordinary user make no namespaces"
    exec "${namespaces[@]}" "$self" make-machine "$1"
    ;;
esac
