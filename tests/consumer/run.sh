#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs a build into a folder of its own, moves that folder, and builds and runs the examples against it: by CMake
# package, by pkg-config, and with the whole tree embedded.   Usage: tests/consumer/run.sh BUILD_DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
examples=$here/../../examples
build=$(cd "$1" && pwd)
work=$build/consumer
rm -rf "$work"
mkdir -p "$work"

echo "== install into $work/prefix"
cmake --install "$build" --prefix "$work/installed" >"$work/install.log"
mv "$work/installed" "$work/prefix"
libdir=$(dirname "$(find "$work/prefix" -name libExportLib.so)")
program=$work/prefix/bin/tidewatch

echo "== examples by find_package(ExportLib)"
cmake -S "$examples" -B "$work/by-cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$work/prefix" \
    >"$work/configure.log"
cmake --build "$work/by-cmake" >"$work/build.log"
"$work/by-cmake/export-memory" "$work/by-cmake.pcd"

echo "== example by pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
read -r -a flags <<<"$(pkg-config --cflags --libs ExportLib)"
"${CXX:-c++}" -std=c++20 "$examples/exportMemory.cpp" "${flags[@]}" -Wl,-rpath,"$libdir" -o "$work/by-pkg-config"
"$work/by-pkg-config" "$work/by-pkg-config.pcd"

echo "== every installed header"
(cd "$(pkg-config --variable=includedir ExportLib)" && find . -name '*.hpp' -printf '#include <%P>\n' | sort) \
    >"$work/headers.cpp"
"${CXX:-c++}" -std=c++20 -fsyntax-only "${flags[@]}" "$work/headers.cpp"

echo "== example with the tree embedded"
cmake -S "$here/embedded" -B "$work/embedded" -G Ninja -DCMAKE_BUILD_TYPE=Release >"$work/configure-embedded.log"
cmake --build "$work/embedded" --target export-memory >"$work/build-embedded.log"
"$work/embedded/export-memory" "$work/embedded.pcd"

for file in by-pkg-config embedded; do
    cmp "$work/by-cmake.pcd" "$work/$file.pcd"
done

echo "== installed program, and the same export by a host through the installed readers"
"$program" --version
"$program" sample --points 20000 -o "$work/sample.h5"
"$work/by-cmake/export-files" "$work/by-host.pcd" "$work/sample.h5"
"$program" pcd "$work/sample.h5" --cell-size 0.5 -o "$work/by-program.pcd"
cmp "$work/by-host.pcd" "$work/by-program.pcd"

echo "== the installed program with every exporter and reader"
"$program" las "$work/sample.h5" -o "$work/laz/{time}.laz" --grid coast --verify --quiet
"$program" info "$work/laz/0.laz"
"$program" ascii "$work/sample.h5" -o "$work/text" --grid elevation --quiet
if [[ -e $libdir/libtidewatch-rasters.so ]]; then
    "$program" info "$work/text/Height/east.grd"
fi

echo "consumer: all outputs are the same"
