# Shared by the scripts of this directory: where the tree is, and steps that speak only when they fail.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build
# shellcheck disable=SC2034 # read by the scripts
jobs=$(nproc)
mkdir -p "$logs"
cd "$root" || exit

# quietly NAME COMMAND...: the output goes to build/NAME.log, and on failure its end to standard error.
quietly() {
    local log=$logs/$1.log status=0
    shift
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        tail -n 120 "$log" >&2
        printf '%s: failed: %s\nThe whole output is in %s\n' "${0##*/}" "$*" "$log" >&2
    fi
    return "$status"
}

# build_preset PRESET [CMAKE_OPTION...]: configures and builds $targets, or everything, with $runner in front.
build_preset() {
    local preset=$1
    shift
    quietly "configure-$preset" cmake --preset "$preset" "$@" &&
        quietly "build-$preset" "${runner[@]}" cmake --build --preset "$preset" --parallel "$jobs" \
            ${targets[@]:+--target "${targets[@]}"}
}

# failed_tests LOG: the end of what each failed test had to say, without passed cases and the library's error lines, and
# the list of these tests.
failed_tests() {
    awk '
        function flush_block(  i) {
            if (failed && count > 80) print "(" count - 80 " lines left out)"
            for (i = count > 80 ? count - 79 : 1; failed && i <= count; i++) print lines[i]
            failed = count = 0
        }
        /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / { flush_block()
            failed = title = /\*\*\*/ && !/\*\*\*(Skipped|Not Run)/ }
        /^ +Start +[0-9]+: / || /^[0-9]+% tests passed/ { flush_block() }
        /^The following tests FAILED:/ { in_list = 1 }
        in_list { print; next }
        title { print; title = 0; next }
        /^\[ +(RUN|OK) +\]/ || /^\033\[31m/ { next }
        failed { lines[++count] = $0 }
    ' "$1"
}

# test_preset PRESET: runs the tests; no tests at all is a failure. Leaves ctest's closing line in $summary.
test_preset() {
    local log=$logs/test-$1.log status=0
    "${runner[@]}" ctest --preset "$1" --parallel "$jobs" --timeout 300 --no-tests=error >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        failed_tests "$log" >&2
        printf 'The whole output is in %s\n' "$log" >&2
    fi
    # shellcheck disable=SC2034 # read by the scripts
    summary=$(grep -E '^[0-9]+% tests passed' "$log" || echo "no tests ran")
    return "$status"
}

# A command prefix for everything that runs what was built; test-sanitizers sets it.
runner=()
targets=()
