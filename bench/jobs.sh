#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The program with one processor beside the same with more: whole processes, in turns, medians of ratios. The share of the
# time that is not shared among processors follows from the ratio (Amdahl); waiting for the disk counts in it.
# Usage: bench/jobs.sh BUILD [FOLDER [POINTS [JOBS [ROUNDS]]]], where BUILD is a build folder that has the program.
# Writes and removes files of some hundred MB in FOLDER (default: here).
set -euo pipefail

(($# >= 1)) || { sed -n '4,8s/^# //p' "$0" >&2; exit 2; }
program=$(realpath "$1/host/tidewatch")
points=${3:-5000000}
jobs=${4:-2}
rounds=${5:-5}
folder=$(mktemp -d "${2:-.}/jobs.XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# One slice of the synthetic survey, with all attributes, as LAZ.
"$program" sample --points "$points" -o survey.h5 -q
"$program" las survey.h5 --grid coast --time 0 -o survey.laz -q
rm survey.h5
"$program" info survey.laz

# Seconds that a command takes.
seconds() {
    local begin=$EPOCHREALTIME
    "$@" >/dev/null 2>&1
    local end=$EPOCHREALTIME
    awk -v b="$begin" -v e="$end" 'BEGIN { printf "%.3f", e - b }'
}

median() { sort -g | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

compare() {
    local name=$1 one more ones=() mores=() ratios=() round
    shift
    for ((round = 0; round < rounds; ++round)); do
        rm -rf out*
        one=$(seconds "$program" "$@" -j 1)
        rm -rf out*
        more=$(seconds "$program" "$@" -j "$jobs")
        ones+=("$one")
        mores+=("$more")
        ratios+=("$(awk -v a="$one" -v b="$more" 'BEGIN { print a / b }')")
    done
    local ratio
    ratio=$(printf '%s\n' "${ratios[@]}" | median)
    printf '%-14s -j 1 %6.2f s   -j %d %6.2f s   ratio %.2f   not shared at most %3.0f %%\n' "$name" \
        "$(printf '%s\n' "${ones[@]}" | median)" "$jobs" "$(printf '%s\n' "${mores[@]}" | median)" "$ratio" \
        "$(awk -v n="$jobs" -v r="$ratio" 'BEGIN { print 100 * (n / r - 1) / (n - 1) }')"
}

compare "laz to laz" las survey.laz -o out.laz
compare "laz to las" las survey.laz -o out.las
compare "laz to pcd" pcd survey.laz -o out.pcd --no-thinning
compare "laz to thin pcd" pcd survey.laz -o out.pcd --cell-size 1
compare "laz to ascii" ascii survey.laz -o out --field Positions
compare "laz, verified" las survey.laz -o out.laz --verify
compare "laz to squares" las survey.laz -o 'out/{tile}.laz' --tile-size 250
# Outputs side by side.
"$program" las survey.laz -o 'tiles/{tile}.laz' --tile-size 100 -q
compare "files to laz" las tiles/*.laz -o 'out/{grid}.laz'
compare "files verified" las tiles/*.laz -o 'out/{grid}.laz' --verify
