#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the fuzz targets, the libraries and the program with clang, and runs each target for a minute, or for the given
# number of seconds. Stops at the first finding, and leaves the input that caused it in build/fuzz/findings; turn it
# into a named regression test. With --instrumented, HDF5 and LASzip are built with AddressSanitizer, too
# (scripts/fuzz-libraries.sh), which is needed to detect out-of-bounds reads inside them; everything is then in
# build/fuzz-instrumented. With --in-process, only those targets run whose code also runs in the process of a host:
# HDF5 and GDAL crash on some inputs, and that is why they run in processes of their own.
#
# Usage: scripts/fuzz.sh [--instrumented] [--in-process] [SECONDS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=fuzz
in_process=0
while [[ ${1:-} == --* ]]; do
    case $1 in
    --instrumented) preset=fuzz-instrumented ;;
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

scripts/setup.sh --build-only --fuzz
[[ $preset == fuzz ]] || scripts/fuzz-libraries.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"

build=build/$preset
mkdir -p "$build/findings"
for target in "$build"/fuzz/fuzz-*; do
    [[ -x $target ]] || continue
    name=${target##*/fuzz-}
    # These read with HDF5 and GDAL.
    ((in_process)) && [[ $name == BundleFile || $name == Raster ]] && continue
    corpus=$build/corpus/$name
    seeds=$build/seeds/$name
    mkdir -p "$corpus" "$seeds"
    "$build/fuzz/seeds-$name" "$seeds"
    echo "== $name: $seconds s, $(find "$seeds" -type f | wc -l) seeds"
    "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/findings/$name-" "$corpus" "$seeds"
done
echo "fuzz: nothing was found"
