#!/usr/bin/env bash
# Measures packets per second when GNU parallel makes many, with one job and with two, and the same for the floor:
#     bench/many.sh FOLDER_OF_THE_PROGRAMS [PACKETS [TURNS]]
# The contenders take turns, and the medians of the turns are printed. Needs what script/bench builds.
set -euo pipefail

tree=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/..
programs=$(realpath -e -- "$1")
packets=${2:-100}
turns=${3:-5}
export PATH=$programs:$PATH
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
cd "$work"
# shellcheck disable=SC2016 # it is sed that reads it
sed -n '/^```sh$/,/^```$/{/^```/!p}' "$tree/docs/many.md" >make-packet
sed '$d' make-packet >make-only
chmod +x make-packet make-only
seq -f 'password %.0f' $((8 * packets)) >words.txt

# One turn of a contender with a number of jobs, in a new folder. Prints the packets per second.
turn() {
    local contender=$1 jobs=$2 start end
    rm -rf packets
    mkdir packets
    start=$(date +%s%N)
    case $contender in
    nothing) parallel -j "$jobs" --pipe -N 8 'cat >/dev/null' <words.txt ;;
    floor) parallel -j "$jobs" --pipe -N 8 'cat >/dev/null; floor plain prime256v1 8 packets/{#}' <words.txt ;;
    made) parallel -j "$jobs" --pipe -N 8 ./make-only "packets/{#}" <words.txt ;;
    checked) parallel -j "$jobs" --pipe -N 8 ./make-packet "packets/{#}" <words.txt ;;
    esac >output
    end=$(date +%s%N)
    [[ $contender == nothing || $(find packets -name 'publicKeysHashHashes.bin' | wc -l) == "$packets" ]]
    [[ $contender != checked || $(grep -c '^all agrees: a packet of 8$' output) == "$packets" ]]
    awk -v n="$packets" -v t=$((end - start)) 'BEGIN { printf "%.1f\n", n * 1e9 / t }'
}

for ((i = 0; i < turns; i++)); do
    for contender in nothing floor made checked; do
        for jobs in 1 2; do
            turn "$contender" "$jobs" >>"$contender-$jobs"
        done
    done
done

printf '| packets per second | one job | two jobs |\n| --- | --- | --- |\n'
for contender in nothing floor made checked; do
    printf '| %s |' "$contender"
    for jobs in 1 2; do
        printf ' %s |' "$(sort -n "$contender-$jobs" | sed -n "$((turns / 2 + 1))p")"
    done
    printf '\n'
done
