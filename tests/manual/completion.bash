#!/bin/bash
# What bash offers behind the programs' names.
# Arguments: the directory of completions.
set -u

for program in vxpadctl vxpad-emulator vxpad-emulator-control; do
    # shellcheck source=/dev/null
    . "$1/$program" || exit 1
    complete -p "$program" | grep -q "^complete -F _.* $program$" || exit 1
done
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1
touch signature.rec signature.svg
mkdir some

# offers LINE WORD...: asks as bash does when somebody presses Tab at the end of the line.
failed=0
offers() {
    local program=${1%% *}
    COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=()
    shift
    "_${program//-/_}"
    if [ "${COMPREPLY[*]}" != "$*" ]; then
        printf 'behind "%s"\n  expected: %s\n  offered:  %s\n' "$COMP_LINE" "$*" "${COMPREPLY[*]}"
        failed=1
    fi
}

offers 'vxpadctl fe' feature
offers 'vxpadctl feature ' get set
offers 'vxpadctl --trace feature get 1 --' --interface --length --trace
offers 'vxpadctl list --' --json --trace
offers 'vxpadctl list -- --'
offers 'vxpadctl --vers' --version
offers 'vxpadctl help fea' feature
offers 'vxpadctl ssp send 1 --component ' communication configuration signpad
offers 'vxpadctl ssp send 1 --component si' signpad
offers 'vxpadctl ssp send 1 --component=si' signpad
offers 'vxpadctl ssp connection 1 ' get set
offers 'vxpadctl button set 1 doc-view ro' rotate rotate-90 rotate-180
offers 'vxpadctl record 1 -o signature.s' signature.svg
offers 'vxpadctl monitor 1 --layout-file=signature.r' signature.rec
offers 'vxpadctl monitor 1 --layout @signature.r' signature.rec
offers 'vxpadctl monitor 1 --layout sig'
offers 'vxpadctl replay signature.r' signature.rec
offers 'vxpadctl nonsense '
offers 'vxpad-emulator ' run serve attach
offers 'vxpad-emulator run --f' --fault
offers 'vxpad-emulator run --listen'
offers 'vxpad-emulator serve --listen' --listen
offers 'vxpad-emulator attach --vhci so' some
offers 'vxpad-emulator run --pad type=16,ser' 16,serial=
offers 'vxpad-emulator run --pad=type=16,ser' 16,serial=
offers 'vxpad-emulator run --fault st'
offers 'vxpad-emulator run --fault 1:st' stall status=
offers 'vxpad-emulator run --fault 1:stall,co' stall,count=
offers 'vxpad-emulator run --pad type=16 -- cat signature.r' signature.rec
offers 'vxpad-emulator run --pad type=16 -- compgen' compgen
offers 'vxpad-emulator-control unpl' unplug
offers 'vxpad-emulator-control play 1 ' once loop
offers 'vxpad-emulator-control fault 1 st' stall status=
offers 'vxpad-emulator-control replay 1 signature.r' signature.rec
COMP_WORDBREAKS=${COMP_WORDBREAKS//=/}
offers 'vxpadctl ssp send 1 --component=si' --component=signpad
offers 'vxpad-emulator run --pad type=16,ser' type=16,serial=
exit "$failed"
