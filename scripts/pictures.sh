#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the pictures in docs/pictures from the sample survey, with the program and, for the page, Chromium; and from the
# cloud autzen_trim.laz, which is looked up where the tests look for sample files, or at the path given.
set -euo pipefail

if (($# < 1 || $# > 2)); then
    echo "Usage: scripts/pictures.sh TIDEWATCH [autzen_trim.laz]" >&2
    exit 2
fi
tidewatch=$(realpath "$1")
here=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
cloud=$(realpath "${2:-${TIDEWATCH_SHARED:-$here/../../shared}/data/autzen_trim.laz}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p docs/pictures

"$tidewatch" sample --quiet -o "$work/tides.h5"
"$tidewatch" view --quiet "$work/tides.h5" -o "$work/tides.html"
"$tidewatch" view --quiet "$work/tides.h5" -o docs/pictures/view-picture.png --overwrite --size 640x440 --time 3
"$tidewatch" view --quiet "$cloud" -o docs/pictures/view-cloud.png --overwrite --size 640x440 --color height
node view/scripts/screenshot.mjs "$work/tides.html" docs/pictures/view-page.png
ls -l docs/pictures
