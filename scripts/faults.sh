#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Lets every call of the system fail in turn, under every command of the program, and prints a table: calls, injections,
# violations of ours, and those of libraries. Takes hours, nearly all of them for the 120 000 allocations;
# `scripts/faults.sh 40` lets every 40th of them fail. Ends with status 1 if there is a violation of ours.
set -euo pipefail

if (($# > 1)) || [[ ! ${1:-1} =~ ^[1-9][0-9]*$ ]]; then
    echo "Usage: scripts/faults.sh [STEP]" >&2
    exit 2
fi

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh
cmake --preset ci-release
cmake --build --preset ci-release -j "$(nproc)" --target test-faults

# Not by CTest, which ends a test after minutes.
tests=$PWD/build/ci-release/tests/test-faults
table=$(mktemp)
trap 'rm -f "$table"' EXIT
export TIDEWATCH_THOROUGH=${1:-1} TIDEWATCH_FAULT_TABLE=$table
status=0
"$tests" --gtest_list_tests | awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' |
    xargs -P "$(nproc)" -I{} "$tests" --gtest_brief=1 --gtest_filter={} || status=1
echo
echo '| command | failing calls | calls | injections | violations | of libraries |'
echo '|---|---|---|---|---|---|'
sort "$table"
exit "$status"
