#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs a command under a locale with decimal commas and digit grouping (de_DE), which is created in FOLDER: nothing is
# installed on the system. TIDEWATCH_TEST_LOCALE is set to its name, so that test programs can make it the global
# locale.
set -euo pipefail

if (($# < 2)); then
    echo "Usage: scripts/comma-locale.sh FOLDER COMMAND [ARGUMENT...]" >&2
    exit 2
fi
folder=$1
shift
name=de_DE.UTF-8

mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
if [[ ! -e $folder/$name/LC_NUMERIC ]]; then
    # 1 means warnings only: the locale has been written.
    localedef -i de_DE -f UTF-8 "$folder/$name" || (($? == 1))
fi

# C programs silently fall back to the C locale if a locale cannot be loaded, so check with one.
keywords=$(LOCPATH=$folder LC_ALL=$name locale decimal_point thousands_sep)
if [[ $keywords != $',\n.' ]]; then
    echo "comma-locale: the locale in $folder does not work: ${keywords//$'\n'/ }" >&2
    exit 1
fi

exec env LOCPATH="$folder" LC_ALL=$name TIDEWATCH_TEST_LOCALE=$name "$@"
