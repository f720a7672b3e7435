#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Lets every call of the system fail in turn, under every command of the program, and prints a table: calls, injections,
# violations of ours, and those of libraries. Takes an hour or more; ends with status 1 if there is a violation of ours.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh
cmake --preset ci-release
cmake --build --preset ci-release -j "$(nproc)" --target test-faults

table=$(mktemp)
trap 'rm -f "$table"' EXIT
status=0
TIDEWATCH_THOROUGH=1 TIDEWATCH_FAULT_TABLE=$table ctest --test-dir build/ci-release --tests-regex 'Fault' \
    -j "$(nproc)" --output-on-failure --no-tests=error || status=$?
echo
echo '| command | failing calls | calls | injections | violations | of libraries |'
echo '|---|---|---|---|---|---|'
sort "$table"
exit "$status"
