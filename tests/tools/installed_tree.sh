#!/bin/sh
# Installs the build tree into a scratch prefix and uses it as an application would: the header on its own in every
# language, the examples through CMake and through pkg-config.
# Arguments: source directory, build directory, cmake, C compiler, C++ compiler.
#
# Lists of options are meant to be split into words.
# shellcheck disable=SC2086,SC2046
set -eu

source=$1 build=$2 cmake=$3 cc=$4 cxx=$5
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

# shellcheck source=tests/install_apart.sh
. "$source/tests/install_apart.sh"
install_apart "$cmake" "$build" "$prefix" "$scratch/installed"

fail() {
    echo "installed tree: $*" >&2
    exit 1
}

expect_file() {
    found=$(find "$prefix" -path "*/$1")
    [ -n "$found" ] || fail "$1 is missing"
}

for file in bin/vxpadctl libvxpadcom.so include/vxpadcom/vxpadcom.h include/vxpadcom/internals.h include/vxpadcom/vxpadcom.hpp \
    python3/dist-packages/vxpadcom/py.typed lib/udev/rules.d/70-vxpadcom.rules \
    pkgconfig/vxpadcom.pc cmake/vxpadcom/vxpadcomConfig.cmake LICENSE README.md examples/list_pads.c \
    vxpadcom/virtual-pad.layout man/man1/vxpadctl.1 man/man1/vxpad-emulator.1 man/man1/vxpad-emulator-control.1 \
    man/man3/GetFeature.3 man/man5/vxpadcom-recording.5 man/man7/libvxpadcom.7 html/index.html \
    bash-completion/completions/vxpadctl zsh/site-functions/_vxpad-emulator; do
    expect_file "$file"
done

if [ -x "$build/bin/vxpad-bridge" ]; then
    for file in bin/vxpad-bridge man1/vxpad-bridge.1 systemd/user/vxpad-bridge.service vxpadcom/docs/bridge.md; do
        expect_file "$file"
    done
    "$prefix/bin/vxpad-bridge" --version | grep -q '^vxpad-bridge [0-9]' || fail "the installed vxpad-bridge does not run"
fi

# A library that needs something of its build tree would show it here.
"$prefix/bin/vxpadctl" --version | grep -q '^vxpadctl [0-9]' || fail "the installed vxpadctl does not run"

# Installed by its own means into a place that it was not configured for: no trace of the build may be left.
if grep -rIl -e "$build" -e "$source/include" "$prefix" --include='*.pc' --include='*.cmake'; then
    fail "these files name the build tree"
fi

strict='-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror'
for standard in c11 c17 c++17 c++20 c++2b; do
    case $standard in
    c++*) compiler=$cxx language=c++ ;;
    *) compiler=$cc language=c ;;
    esac
    printf '#include <vxpadcom/%s.h>\n' vxpadcom internals >"$scratch/header.$language"
    "$compiler" -std="$standard" $strict -I"$prefix/include" -x "$language" -fsyntax-only "$scratch/header.$language" ||
        fail "the headers are not valid $standard"
done
for standard in c++17 c++20 c++2b; do
    echo '#include <vxpadcom/vxpadcom.hpp>' | "$cxx" -std="$standard" $strict -Wsign-conversion -I"$prefix/include" \
        -x c++ -fsyntax-only - || fail "the header for C++ is not valid $standard"
done

"$cmake" -S "$source/examples" -B "$scratch/examples" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_C_FLAGS="$strict" >"$scratch/configure.log"
"$cmake" --build "$scratch/examples" >"$scratch/build.log" || fail "an example does not build with CMake"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vxpadcom.pc)")
export PKG_CONFIG_PATH
[ "$(pkg-config --modversion vxpadcom)" = "$("$prefix/bin/vxpadctl" --version | cut -d' ' -f2)" ] ||
    fail "pkg-config and vxpadctl disagree on the version"
for example in list_pads feature_report receive upload; do
    "$cc" -std=c11 $strict "$source/examples/$example.c" -o "$scratch/$example" \
        $(pkg-config --cflags --libs vxpadcom) || fail "$example does not build with pkg-config"
done

# The examples work, with the installed library and virtual pads.
LD_LIBRARY_PATH=$(pkg-config --variable=libdir vxpadcom)
export LD_LIBRARY_PATH
pad=--pad=type=16,product=Pad,serial=SN7
for example in "$scratch/list_pads" "$scratch/examples/vxpad_list_pads"; do
    [ "$("$prefix/bin/vxpad-emulator" run "$pad" -- "$example")" = "1: Pad SN7" ] || fail "$example does not list pads"
done

examples=$(dirname "$(find "$prefix" -name receive.py)")
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$prefix/lib/python3/dist-packages"
for example in "$scratch/receive" "$examples/receive.py"; do
    "$prefix/bin/vxpad-emulator" run --pad=type=16,pen=loop,pen-rate=500 -- "$example" 1 40 >"$scratch/received" ||
        fail "$example does not receive"
    [ "$(grep -c '^pad 1: 50 01' "$scratch/received")" -ge 30 ] || fail "$example does not show what the pad sends"
done
head -c 100000 /dev/urandom >"$scratch/image"
"$prefix/bin/vxpad-emulator" run --pad=type=16,pen=loop --vcom=type=16,pen=loop -- sh -c "
    (sleep 10; for pad in 1 2; do '$prefix/bin/vxpad-emulator-control' unplug \$pad; done) >'$scratch/control' &
    '$examples/receive_async.py'" >"$scratch/received" || fail "receive_async.py does not receive"
[ "$(grep -c '^[1-9][0-9]* reports, then: pad [12] was removed' "$scratch/received")" -eq 2 ] ||
    fail "receive_async.py does not receive from both"
# 1563 pieces of 65 bytes, or of 64 that are the file's
while read -r expected example; do
    [ "$("$prefix/bin/vxpad-emulator" run --pad=type=16,interfaces=4 -- "$example" "$scratch/image")" = \
        "sent $expected of $expected bytes" ] || fail "$example does not send everything"
done <<END
101595 $scratch/upload
100000 $examples/upload.py
END

if udevadm verify --help >/dev/null 2>&1; then
    udevadm verify "$prefix/lib/udev/rules.d/70-vxpadcom.rules" || fail "udev does not accept the rules"
fi

# What the texts refer to is installed with them.
find "$prefix/share/doc" -name '*.md' | while read -r text; do
    sed -n 's/.*](\([^):#]*\)[)#].*/\1/p' "$text" | while read -r link; do
        [ -e "$(dirname "$text")/$link" ] || [ -e "$prefix/${link#../}" ] || echo "$text refers to $link"
    done
done >"$scratch/links"
[ ! -s "$scratch/links" ] || fail "$(cat "$scratch/links")"

"$cmake" -D MANIFEST="$scratch/installed" -P "$source/packaging/uninstall.cmake" >"$scratch/uninstall.log" 2>&1
left=$(find "$prefix" ! -type d)
[ -z "$left" ] || fail "uninstalling leaves $left"
left=$(find "$prefix" -path '*/vxpadcom*')
[ -z "$left" ] || fail "uninstalling leaves $left"
