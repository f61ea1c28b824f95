#!/bin/zsh -f
# What zsh offers behind the programs' names, with stand-ins for the functions by which zsh shows it.
# Arguments: the directory of completions.

_describe() {
    offered+=("${(@P)4}")
}
compadd() {
    shift "${@[(i)--]}"
    offered+=("${(@M)@:#${PREFIX}*}")
}
_files() {
    offered+=("files${1:+ $1} $PREFIX")
}
_normal() {
    offered+=("words of ${words[*]}")
}
# Takes off PREFIX what the pattern matches, as much of it as it can unless there is a number.
compset() {
    local pattern=${@[-1]}
    [[ $PREFIX == ${~pattern}* ]] || return 1
    if [[ $# -eq 3 ]]; then
        PREFIX=${PREFIX#${~pattern}}
    else
        PREFIX=${PREFIX##${~pattern}}
    fi
}

directory=$1
integer failed=0
# offers LINE WORD...
offers() {
    local line=$1
    local -a words=("${(@s: :)1}") offered
    local CURRENT=$#words PREFIX=$words[-1] file=$directory/_$words[1]
    shift
    zsh -n "$file" || failed=1
    source "$file"
    if [[ "${offered[*]}" != "$*" ]]; then
        print -r -- "behind \"$line\"\n  expected: $*\n  offered:  ${offered[*]}"
        failed=1
    fi
}

offers 'vxpadctl feature ' 'get:reads a feature report' 'set:sends a feature report'
offers 'vxpadctl feature set 1 --fi' '--interface:interface of the pad, counted from 0 (default 0)' \
    '--fill:zeros up to a full report' "--reply:then waits for the pad's answer" \
    "--trace:the library's own account of everything it does, on standard error"
offers 'vxpadctl ssp send 1 --component ' communication configuration signpad
offers 'vxpadctl ssp send 1 --component=si' communication configuration signpad
offers 'vxpadctl ssp connection 1 ' get set
offers 'vxpadctl replay READ' 'files READ'
offers 'vxpadctl monitor 1 --layout @READ' 'files READ'
offers 'vxpadctl monitor 1 --layout-file=READ' 'files READ'
offers 'vxpad-emulator attach --vhci /sys' 'files -/ /sys'
offers 'vxpad-emulator run --pad x -- ls RE' 'words of ls RE'
offers 'vxpad-emulator-control play 1 ' once loop
offers 'vxpadctl nonsense '
offers 'vxpad-emulator run --fault st'
offers 'vxpad-emulator run --fault 1:stall,co' count=
offers 'vxpad-emulator run --pad type=16,ser' serial=
offers 'vxpad-emulator run --pad=type=16,ser' serial=
for line in 'vxpad-emulator run --pad type=16,' 'vxpad-emulator run --pad='; do
    offered=()
    offers "$line" type= vendor= id= interfaces= maker= product= serial= version= mode-delay= unknown= named= access= \
        ssp= components= modes= told-vendor= told-id= told-serial= conf-busy= conf-fail= connection= set-connection= \
        pen= pen-rate= pen-size= pen-interface= signature=
done
exit $failed
