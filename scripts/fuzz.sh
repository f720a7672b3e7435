#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the fuzz targets with clang, and runs each for a minute, or for the given number of seconds, as many side by side
# as there are processors. Stops at the first finding, and leaves the input that caused it in build/sanitize/findings;
# turn it into a named regression test. With --instrumented, HDF5 and LASzip are built with AddressSanitizer, too
# (scripts/fuzz-libraries.sh), which is needed to detect out-of-bounds reads inside them; everything is then in
# build/sanitize-instrumented. With --in-process, only those targets run whose code also runs in the process of a host:
# HDF5 and GDAL crash on some inputs, and that is why they run in processes of their own.
#
# Usage: scripts/fuzz.sh [--instrumented] [--in-process] [SECONDS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

instrumented=''
in_process=0
while [[ ${1:-} == --* ]]; do
    case $1 in
    --instrumented) instrumented=-instrumented ;;
    --in-process) in_process=1 ;;
    *) break ;;
    esac
    shift
done
seconds=${1:-60}
if (($# > 1)) || [[ ! $seconds =~ ^[0-9]+$ ]]; then
    echo "Usage: scripts/fuzz.sh [--instrumented] [--in-process] [SECONDS]" >&2
    exit 2
fi

scripts/setup.sh --fuzz
[[ -z $instrumented ]] || scripts/fuzz-libraries.sh
cmake --preset "sanitize$instrumented"
cmake --build --preset "fuzz$instrumented" -j "$(nproc)"

export build=build/sanitize$instrumented seconds
mkdir -p "$build/findings"

# What a target prints is shown when it has ended. Status 255 makes xargs start no other.
fuzz() {
    local name=$1 status=0
    local corpus=$build/corpus/$name seeds=$build/seeds/$name log=$build/findings/$name.log
    mkdir -p "$corpus" "$seeds"
    {
        "$build/fuzz/seeds-$name" "$seeds" &&
            echo "== $name: $seconds s, $(find "$seeds" -type f | wc -l) seeds" &&
            "$build/fuzz/fuzz-$name" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
                -artifact_prefix="$build/findings/$name-" "$corpus" "$seeds"
    } >"$log" 2>&1 || status=255
    cat "$log"
    return "$status"
}
export -f fuzz

for target in "$build"/fuzz/fuzz-*; do
    [[ -x $target ]] || continue
    name=${target##*/fuzz-}
    # These read with HDF5 and GDAL.
    ((in_process)) && [[ $name == BundleFile || $name == Raster ]] && continue
    echo "$name"
done | xargs -P "$(nproc)" -I '{}' bash -c 'fuzz "$1"' fuzz '{}'
echo "fuzz: nothing was found"
