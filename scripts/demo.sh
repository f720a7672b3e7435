#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# From a fresh machine to exported files: installs what a build needs, builds the program, creates a sample survey,
# shows its contents and exports it. Everything it writes is under build/demo.
set -euo pipefail

if (($# > 0)); then
    echo "Usage: scripts/demo.sh" >&2
    exit 2
fi
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/logged.sh
. scripts/logged.sh

step() { printf '\n== %s\n' "$*"; }

# Shows a command as a user would type it, then runs it.
run() {
    printf '$'
    printf ' %s' "$@"
    printf '\n'
    "$@"
}

step "1. Install what a build needs"
scripts/setup.sh --build-only

step "2. Build the program (the first time takes some minutes)"
log=build/demo/build.log
mkdir -p build/demo
: >"$log"
logged "$log" cmake --preset demo
shown "$log" cmake --build --preset demo -j "$(nproc)"
tidewatch=build/demo/host/tidewatch
run "$tidewatch" --version

out=build/demo/out
rm -rf "$out"
mkdir -p "$out"

step "3. Make a sample survey: a synthetic coast, as a bundle file"
run "$tidewatch" sample -o "$out/survey.h5"

step "4. Look into it"
run "$tidewatch" info "$out/survey.h5"

step "5. Export its point clouds to LAZ, a file for each time and grid, and read each one back to compare"
run "$tidewatch" las "$out/survey.h5" -o "$out/laz/{time}-{grid}.laz" --verify

step "6. Export them to PCD, thinned to a point for each half metre"
run "$tidewatch" pcd "$out/survey.h5" -o "$out/pcd/{time}-{grid}.pcd" --cell-size 0.5

step "7. Export its elevation grids as text, without the cells that nobody surveyed"
run "$tidewatch" ascii "$out/survey.h5" -o "$out/grids/{time}" --grid elevation --field Height --cell-types 1:3

step "8. Make a page that shows the survey in a browser, and a picture of it"
run "$tidewatch" view "$out/survey.h5" -o "$out/survey.html"
run "$tidewatch" view "$out/survey.h5" -o "$out/survey.png"

step "9. What the files hold"
laz=("$out"/laz/*.laz)
pcd=("$out"/pcd/*.pcd)
grd=("$out"/grids/*/*/*.grd)
run "$tidewatch" info "${laz[0]}"
run head -n 14 "${pcd[0]}"
run head -n 6 "${grd[0]}"

step "Done. The files:"
for file in "$out/survey.h5" "${laz[@]}" "${pcd[@]}" "${grd[@]}" "$out/survey.html" "$out/survey.png"; do
    printf '  %10d bytes  %s\n' "$(stat -c %s "$file")" "$file"
done
cat <<TEXT

To look at the survey, open $PWD/$out/survey.html in a browser (xdg-open, or a double click);
the picture is $PWD/$out/survey.png.
The program is $tidewatch; try $tidewatch --help.
To install it and the library:  cmake --install build/demo --prefix ~/.local
TEXT

step "And in Python: the survey as arrays of NumPy"
code="import tidewatch as tw; print(tw.open('$out/survey.h5')[0]['coast']['Positions'].mean(axis=0))"
printf '$ PYTHONPATH=build/demo/python /usr/bin/python3 -c "%s"\n' "$code"
PYTHONPATH=build/demo/python /usr/bin/python3 -c "$code"
