#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Formats every C++ file that git tracks; with --check it changes nothing, and fails if a file is not formatted. Exits
# with status 77, without doing anything, if clang-format is not the release that .clang-format was written for: every
# release formats some things differently.
set -euo pipefail

release=14
case ${1:-} in
'') mode=(-i) ;;
--check) mode=(--dry-run -Werror) ;;
*) echo "Usage: scripts/format.sh [--check]" >&2; exit 2 ;;
esac

cd "$(dirname "${BASH_SOURCE[0]}")/.."

program=''
for candidate in "clang-format-$release" clang-format; do
    if [[ $("$candidate" --version 2>/dev/null) == *"version $release."* ]]; then
        program=$candidate
        break
    fi
done
if [[ -z $program ]]; then
    found=$(clang-format --version 2>/dev/null) || found='none'
    echo "format: needs clang-format $release; found: $found" >&2
    exit 77
fi

mapfile -d '' -t files < <(git ls-files -z -- '*.hpp' '*.cpp')
if ((${#files[@]} == 0)); then
    echo "format: git tracks no C++ file here" >&2
    exit 1
fi
"$program" "${mode[@]}" --style=file -- "${files[@]}"
echo "format: ${#files[@]} files ${1:+are well }formatted"
