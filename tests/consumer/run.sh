#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs a build into its own folder, moves that folder, and builds and runs the installed examples against it: by
# CMake package, by pkg-config, and with the whole tree embedded.   Usage: tests/consumer/run.sh BUILD_DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=scripts/logged.sh
. "$here/../../scripts/logged.sh"
build=$(cd "$1" && pwd)
work=$build/consumer
rm -rf "$work"
mkdir -p "$work"

fail() { echo "consumer: $*" >&2; exit 1; }

echo "== install into $work/prefix"
cmake --install "$build" --prefix "$work/installed" >"$work/install.log"
mv "$work/installed" "$work/prefix"
libdir=$(dirname "$(find "$work/prefix" -name libExportLib.so)")
examples=$(dirname "$(find "$work/prefix/share" -name exportMemory.cpp)")
program=$work/prefix/bin/tidewatch
compiler=${CXX:-c++}

# Ninja, since setup.sh does not install make.
build_by_cmake() { # SOURCE BUILD TARGET TYPE
    logged "$work/build.log" cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE="$4" -DCMAKE_PREFIX_PATH="$work/prefix"
    shown "$work/build.log" cmake --build "$2" --target "$3"
}

echo "== examples by find_package(ExportLib)"
build_by_cmake "$examples" "$work/by-cmake" all Release

echo "== examples by pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
mkdir "$work/by-pkg-config"
build_by_pkg_config() { # SOURCE OUTPUT PACKAGE
    local flags
    read -r -a flags <<<"$(pkg-config --cflags --libs "$3")"
    "$compiler" -std=c++20 "$examples/$1" "${flags[@]}" -Wl,-rpath,"$libdir" -o "$work/by-pkg-config/$2"
}
build_by_pkg_config exportMemory.cpp export-memory ExportLib
build_by_pkg_config exportFiles.cpp export-files ExportLibReaders
build_by_pkg_config convertFiles.cpp convert-files Tidewatch

echo "== example with the tree embedded"
build_by_cmake "$here/embedded" "$work/embedded" export-memory Debug

echo "== the example's exports are the same whichever way it was built"
for way in by-cmake by-pkg-config embedded; do
    (mkdir "$work/from-$way" && cd "$work/from-$way" && "$work/$way/export-memory" out)
    diff -r "$work/from-by-cmake" "$work/from-$way"
done
(cd "$work/from-by-cmake/out" && find . -type f | sort) >"$work/files.txt"
diff "$work/files.txt" - <<'TEXT'
./pier.las
./pier.laz
./pier.pcd
./text/Classification/wall.asc
./text/Height/shore.grd
./text/Intensity/wall.asc
./text/Positions/wall.asc
TEXT
"$program" info "$work/from-by-cmake/out/pier.laz" >"$work/pier.txt"
head -n 2 "$work/from-by-cmake/out/text/Height/shore.grd" | diff - <(printf 'NCOLS 40\nNROWS 30\n')
! "$work/by-cmake/export-memory" /dev/null/out 2>"$work/refused.txt" || fail "the example wrote into a device"
grep /dev/null/out "$work/refused.txt"

read -r -a cflags <<<"$(pkg-config --cflags ExportLib)"
echo "== every installed header"
(cd "$(pkg-config --variable=includedir ExportLib)" && find . -name '*.hpp' -printf '%P\n' | sort) >"$work/headers.txt"
sed 's|.*|#include <&>|' "$work/headers.txt" >"$work/headers.cpp"
"$compiler" -std=c++20 -fsyntax-only "${cflags[@]}" "$work/headers.cpp"

echo "== every installed header in a program below C++20: the first error says so"
# The few that ask for nothing of C++20 may pass.
first_error() { # HEADER COMPILER FLAG...
    "${@:2}" -std=c++17 -fsyntax-only -x c++ - <<<"#include <$1>" 2>&1 | grep -m 1 'error:' | sed "s|^|$1: |"
}
export -f first_error
LC_ALL=C xargs -P "$(nproc)" -I '{}' bash -c 'first_error "$@" || true' first_error '{}' "$compiler" "${cflags[@]}" \
    <"$work/headers.txt" >"$work/errors.txt"
[[ -s $work/errors.txt ]] || fail "no header was refused"
! grep -v 'ExportLib and its headers need C++20' "$work/errors.txt" || fail "the first error of these headers says something else"

echo "== installed program, and the same export by a host through the installed readers"
"$program" --version
"$program" sample --points 20000 -o "$work/sample.h5"
"$program" pcd "$work/sample.h5" --cell-size 0.5 --last-wins -o "$work/by-program.pcd"
for way in by-cmake by-pkg-config; do
    "$work/$way/export-files" "$work/$way.pcd" "$work/sample.h5"
    cmp "$work/$way.pcd" "$work/by-program.pcd"
done

echo "== a host that converts as the program does"
"$program" las "$work/sample.h5" --grid coast --time 0 -o "$work/coast.laz" --quiet
"$program" las "$work/coast.laz" -o "$work/copy-by-program.laz" --quiet
for way in by-cmake by-pkg-config; do
    "$work/$way/convert-files" "$work/copy-$way.laz" "$work/coast.laz"
    cmp "$work/copy-$way.laz" "$work/copy-by-program.laz"
done

echo "== the installed program with every exporter and reader"
"$program" las "$work/sample.h5" -o "$work/laz/{time}.laz" --grid coast --verify --quiet
"$program" info "$work/laz/0.laz"
"$program" ascii "$work/sample.h5" -o "$work/text" --grid elevation --last-wins --quiet
if [[ -e $libdir/libtidewatch-rasters.so ]]; then
    "$program" info "$work/text/Height/east.grd"
fi

package=$(find "$work/prefix" -path '*/tidewatch/__init__.py' -printf '%h')
if [[ -n $package ]]; then
    echo "== the installed Python package"
    (cd "$work" && PYTHONPATH=${package%/tidewatch} PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c "
import tidewatch as tw
tw.las('coast.laz', 'copy-by-python.laz')
print(tw.open('sample.h5')[0]['coast'])")
    cmp "$work/copy-by-python.laz" "$work/copy-by-program.laz"
fi

echo "consumer: all outputs are the same"
