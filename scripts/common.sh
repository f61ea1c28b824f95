# Shared by the scripts of this directory: where the tree is, and steps that speak only when they fail.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build
# shellcheck disable=SC2034 # read by the scripts
jobs=$(nproc)
mkdir -p "$logs"
cd "$root" || exit

# tell_progress NAME SCRIPT: says every half minute how far build/NAME.log has come, as long as that process lives.
tell_progress() {
    local never start=$SECONDS
    exec {never}<> <(:)
    read -r -t 30 -u "$never"
    while kill -0 "$2" 2>/dev/null; do
        printf '%s: %s, %d s: %s\n' "${0##*/}" "$1" $((SECONDS - start)) "$(tail -n 1 "$logs/$1.log" | cut -c 1-100)"
        read -r -t 30 -u "$never"
    done
}

# followed NAME COMMAND...: the output goes to build/NAME.log, and every half minute a line tells how far it is.
followed() {
    local name=$1 status=0 teller
    shift
    tell_progress "$name" "$BASHPID" 9>&- &
    teller=$!
    "$@" >"$logs/$name.log" 2>&1 || status=$?
    kill "$teller" 2>/dev/null
    wait "$teller" 2>/dev/null
    return "$status"
}

# quietly NAME COMMAND...: as followed, and on failure the end of the output goes to standard error.
quietly() {
    local log=$logs/$1.log status=0
    followed "$@" || status=$?
    shift
    if [ "$status" -ne 0 ]; then
        tail -n 120 "$log" >&2
        printf '%s: failed: %s\nThe whole output is in %s\n' "${0##*/}" "$*" "$log" >&2
    fi
    return "$status"
}

# copy_tree DIRECTORY: what belongs to this tree, and nothing that was built in it.
copy_tree() {
    rm -rf "$1" && mkdir -p "$1"
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git ls-files --cached --others --exclude-standard -z | while IFS= read -r -d '' file; do
            [ ! -e "$file" ] || printf '%s\0' "$file"
        done | tar --null --files-from=- --create
    else
        tar --exclude=./build --create .
    fi | tar --extract --directory "$1"
}

# configure_preset PRESET [CMAKE_OPTION...]: alone in the preset's directory.
configure_preset() {
    local preset=$1
    shift
    {
        flock 9
        quietly "configure-$preset" cmake --preset "$preset" "$@"
    } 9>"$logs/$preset.lock"
}

# build_preset PRESET [CMAKE_OPTION...]: configures and builds $targets, or everything, with $builder in front.
build_preset() {
    local preset=$1
    configure_preset "$@" || return
    {
        flock 9
        quietly "build-$preset" "${builder[@]}" cmake --build --preset "$preset" --parallel "$jobs" \
            ${targets[@]:+--target "${targets[@]}"}
    } 9>"$logs/$preset.lock"
}

# failed_tests LOG: what the failed cases of each failed test had to say, or a program's own words where it has none,
# without what passed cases and the library's error lines say, and the list of these tests. A case that has not ended is
# where its program did.
failed_tests() {
    awk '
        function keep(line) { if (++count <= 200) lines[count] = line; else last[count % 40] = line }
        function flush_case(  i) { for (i = 1; i <= said; i++) keep(spoken[i]); said = 0 }
        function flush_test(  i) {
            flush_case()
            for (i = 1; failed && i <= count && i <= 200; i++) print lines[i]
            if (failed && count > 240) print "(" count - 240 " lines left out)"
            for (i = count > 240 ? count - 39 : 201; failed && i <= count; i++) print last[i % 40]
            failed = in_case = count = 0
        }
        /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / { flush_test()
            failed = title = /\*\*\*/ && !/\*\*\*(Skipped|Not Run)/ }
        /^ +Start +[0-9]+: / || /^[0-9]+% tests passed/ { flush_test() }
        /^The following tests FAILED:/ { in_list = 1 }
        in_list { print; next }
        title { print; title = 0; next }
        { sub(/^\033\[0m/, "") }
        !failed || /^\033\[31m/ { next }
        /^\[ +RUN +\] / { flush_case(); in_case = 1 }
        /^\[ +(OK|SKIPPED) +\] / && in_case { said = in_case = 0; next }
        in_case { spoken[++said] = $0 }
        /^\[ +FAILED +\] / && in_case { flush_case(); in_case = 0; next }
        in_case || /^\[[-=]+\]/ || /^$/ { next }
        { keep($0) }
    ' "$1"
}

# cases_of PRESET: how many test cases the programs of the last ctest have run.
cases_of() {
    awk '/^\[=+\] [0-9]+ tests? from .* ran\./ { cases += $2 } END { print cases + 0 }' \
        "$root/build/$1/Testing/Temporary/LastTest.log"
}

# passed_alone PRESET: whether the few tests that failed pass when nothing else runs. A busy machine can be later than a
# test with real pauses allows. A crash, a time-out and what a sanitizer has found are no matter of that.
passed_alone() {
    local preset=$1 log=$logs/test-$1.log failed
    failed=$(sed -n '/^The following tests FAILED:/,/^$/s/^[[:space:]]*[0-9]* - //p' "$log")
    if [ -z "$failed" ] || [ "$(wc -l <<<"$failed")" -gt 3 ] || grep -qv ' (Failed)' <<<"$failed" ||
        grep -qE '(Address|Leak|Thread|UndefinedBehavior)Sanitizer|: runtime error: ' "$log"; then
        return 1
    fi
    followed "test-$preset-alone" "${runner[@]}" ctest --preset "$preset" --timeout 300 --rerun-failed || return
    printf '%s: %s: failed beside others, passed alone: %s\n' "${0##*/}" "$preset" \
        "$(sed 's/ (Failed).*//' <<<"$failed" | paste -sd' ')"
}

# test_preset PRESET [CTEST_OPTION...]: runs the tests, $tests_at_once of them; no tests at all is a failure. Leaves
# ctest's closing line in $summary and how many cases ran in $cases.
test_preset() {
    local preset=$1 log=$logs/test-$1.log status=0
    shift
    followed "test-$preset" "${runner[@]}" ctest --preset "$preset" --parallel "$tests_at_once" --timeout 300 \
        --no-tests=error --test-output-size-failed 50000000 "$@" || status=$?
    # shellcheck disable=SC2034 # read by the scripts
    summary=$(grep -E '^[0-9]+% tests passed' "$log" || echo "no tests ran")
    # shellcheck disable=SC2034
    cases=$(cases_of "$preset")
    if [ "$status" -ne 0 ]; then
        failed_tests "$log" >&2
        printf 'The whole output is in %s\n' "$log" >&2
        passed_alone "$preset"
    fi
}

# keep_addresses: sanitizers' runtimes cannot place their shadow memory where the kernel spreads mappings over more than
# 28 random bits, so what is run must be told to do without.
keep_addresses() {
    if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ] &&
        setarch --addr-no-randomize true 2>/dev/null; then
        runner=(setarch --addr-no-randomize)
        builder=("${runner[@]}") # it runs what it has built
    fi
}

tests_at_once=$((3 * jobs)) # most of them wait for most of their time

# Command prefixes for what is run and for building.
runner=()
builder=()
targets=()
