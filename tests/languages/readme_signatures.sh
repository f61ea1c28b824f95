#!/bin/sh
# Does what README says under "A drawn signature", with the programs and commands printed there, in an installed tree,
# and has each of the programs meet a pad that is missing, and one that is pulled out.
# Arguments: source directory, build directory, cmake.
set -eu

source=$1 build=$2 cmake=$3
here=$(dirname "$0")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

fail() {
    echo "README's signatures: $*" >&2
    exit 1
}

# block NAME: the fenced block of README whose first line has that name.
block() {
    awk -v name="$1" '
        /^```/ { if (found) { exit } fence = !fence; first = fence; next }
        first { first = 0; found = index($0, name) }
        found && fence { print }' "$source/README.md"
}

for program in sign.c sign.cpp sign.py; do
    block "$program:" >"$program"
    [ "$(wc -l <"$program")" -gt 10 ] || fail "there is no $program"
    [ "$(wc -l <"$program")" -le 25 ] || fail "$program has more than 25 lines"
    diff "$source/examples/$program" "$program" || fail "$program is not that of examples/"
done
block "cc sign.c" >commands
grep -q sign.py commands || fail "there are no commands"

# What packages put into the places where everybody looks.
prefix=$scratch/prefix
# shellcheck source=tests/install_apart.sh
. "$source/tests/install_apart.sh"
install_apart "$cmake" "$build" "$prefix" "$scratch/installed"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vxpadcom.pc)")
export PKG_CONFIG_PATH
LD_LIBRARY_PATH=$(pkg-config --variable=libdir vxpadcom)
export LD_LIBRARY_PATH PATH="$prefix/bin:$PATH"
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$prefix/lib/python3/dist-packages"

echo "with README's own commands:"
sh -ex commands
for drawing in c cpp python; do
    python3 "$here/expect_signature.py" "$drawing.svg" "$source/emulator/signature.txt" || fail "$drawing.svg is wrong"
done

# expect_failure TEXT EMULATOR_OPTION COMMAND: it ends with status other than 0 and a line that has the text.
expect_failure() {
    if vxpad-emulator run "$2" -- sh -c "$3" >shown 2>complaints; then
        fail "$3: ends as if nothing had happened"
    fi
    grep -q "$1" complaints || {
        cat complaints
        fail "$3: does not say '$1'"
    }
}

for command in ./sign-c ./sign-cpp "python3 sign.py"; do
    expect_failure "vxpadctl list' tells why" --pad=type=16 "vxpad-emulator-control unplug 1 >control; exec $command"
    expect_failure "pad 1 was removed" --vcom=type=16 "(
        until vxpad-emulator-control ssp 1 | grep -q biodata=1; do sleep 0.2; done
        vxpad-emulator-control unplug 1) >control &
        exec $command"
done
