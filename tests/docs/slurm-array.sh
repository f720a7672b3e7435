#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The tasks of examples/convertMany.slurm, one after the other and one of them twice, write what one run writes.
# Usage: slurm-array.sh PROGRAM SCRIPT
set -euo pipefail

program=$(realpath "$1")
script=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir tools
ln -s "$program" tools/tidewatch
PATH=$work/tools:$PATH

tidewatch sample --points 4000 -o tides.h5 -q
tidewatch las tides.h5 --tiles --fragment-points 500 --grid coast -o 'in/{time}.laz' -q
find in -name '*.laz' | sort >files.txt
[[ $(wc -l <files.txt) -gt 3 ]]

tidewatch las @files.txt -o 'whole/{grid}.laz' -q --each
for task in 1 2 3 2; do
    SLURM_ARRAY_TASK_ID=$task SLURM_CPUS_PER_TASK=2 "$script" 3 files.txt 'out/{grid}.laz' -q
done
diff -r whole out
if "$script" 3 files.txt 2>usage.txt; then
    echo "two arguments are taken" >&2
    exit 1
fi
grep -q Usage usage.txt
echo "$(find out -type f | wc -l) files"
