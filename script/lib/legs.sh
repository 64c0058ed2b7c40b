# shellcheck shell=bash
# The legs of a longer check, for scripts that have sourced setup.sh: each is timed, and a table lists them at the end.

results=()
failures=0
# Set by a script that ends at the first failure.
ends_at_failure=

# Takes a leg's title and its command. Runs the command in a subshell, in which the first failure ends the leg. Must not
# be called in a condition, where a function goes on after a failure.
leg() {
    local title=$1 start=$SECONDS log status outcome=passed tests=()
    shift
    printf '\n=== %s\n' "$title"
    log=$(mktemp)
    set +e
    (set -e; "$@") </dev/null 2>&1 | tee "$log"
    status=${PIPESTATUS[0]}
    set -e
    ((status == 0)) || outcome=FAILED failures=$((failures + 1))
    results+=("$(printf '%-6s %6d s  %s' "$outcome" $((SECONDS - start)) "$title")")
    printf '=== %s\n' "${results[-1]}"
    mapfile -t tests < <(grep '% tests passed' "$log")
    results+=("${tests[@]}")
    rm -f -- "$log"
    ((status == 0)) || [[ ! $ends_at_failure ]] || exit 1
}

# Prints what ran and how long it took; ctest's summary of a leg is below it.
print_legs() {
    printf '\n=== in %d s, %d failed:\n' "$SECONDS" "$failures"
    printf '%s\n' "${results[@]}"
}
