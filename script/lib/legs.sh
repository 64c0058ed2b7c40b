# shellcheck shell=bash
# Legs of a longer check, for scripts that have sourced setup.sh: each is timed, and a table of them closes the run.

results=()
failures=0
# Set by a script that ends at the first failure.
ends_at_failure=

# Takes a leg's title and its command. A shell of its own, in which the first failure ends the leg: a function that is
# called in a condition would go on after it, and so must this one not be called in a condition.
leg() {
    local title=$1 start=$SECONDS log status outcome=held tests=()
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

# What ran, and how long it took; what ctest said of a leg stands below it.
print_legs() {
    printf '\n=== in %d s, %d failed:\n' "$SECONDS" "$failures"
    printf '%s\n' "${results[@]}"
}
