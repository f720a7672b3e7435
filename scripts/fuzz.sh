#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the fuzz targets with clang and runs each for a minute, or for the seconds given. Ends at the first finding, and
# leaves the input that caused it in build/fuzz/findings; make it a named regression test.
set -euo pipefail

seconds=${1:-60}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh --build-only --fuzz
cmake --preset fuzz
cmake --build --preset fuzz -j "$(nproc)" --target fuzz/all

mkdir -p build/fuzz/findings
for target in build/fuzz/fuzz/fuzz-*; do
    [[ -x $target ]] || continue
    name=${target##*/fuzz-}
    corpus=build/fuzz/corpus/$name
    seeds=build/fuzz/seeds/$name
    mkdir -p "$corpus" "$seeds"
    "build/fuzz/fuzz/seeds-$name" "$seeds"
    echo "== $name: $seconds s, $(find "$seeds" -type f | wc -l) seeds"
    "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/findings/$name-" "$corpus" "$seeds"
done
echo "fuzz: nothing was found"
