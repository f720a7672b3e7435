#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs a build into a folder of its own, moves that folder, and builds and runs the consumer project against it: by
# CMake package, by pkg-config, and with the whole tree embedded.   Usage: tests/consumer/run.sh BUILD_DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd)
work="$build/consumer"
rm -rf "$work"
mkdir -p "$work"

echo "== install into $work/prefix"
cmake --install "$build" --prefix "$work/installed" >"$work/install.log"
mv "$work/installed" "$work/prefix"
libdir=$(dirname "$(find "$work/prefix" -name libExportLib.so)")
test -n "$libdir"

echo "== consumer by find_package(ExportLib)"
cmake -S "$here" -B "$work/by-cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$work/prefix" \
    >"$work/configure.log"
cmake --build "$work/by-cmake" >"$work/build.log"
"$work/by-cmake/consumer" "$work/by-cmake.pcd"
"$work/by-cmake/consumer-readers" "$work/bundle.h5" "$work/by-readers.pcd"

echo "== consumer by pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
read -r -a flags <<<"$(pkg-config --cflags --libs ExportLib)"
"${CXX:-c++}" -std=c++20 "$here/main.cpp" "${flags[@]}" -Wl,-rpath,"$libdir" -o "$work/by-pkg-config"
"$work/by-pkg-config" "$work/by-pkg-config.pcd"

echo "== consumer with the tree embedded"
cmake -S "$here/embedded" -B "$work/embedded" -G Ninja -DCMAKE_BUILD_TYPE=Release >"$work/configure-embedded.log"
cmake --build "$work/embedded" --target consumer >"$work/build-embedded.log"
"$work/embedded/consumer" "$work/embedded.pcd"

echo "== installed program"
LD_LIBRARY_PATH='' "$work/prefix/bin/tidewatch" --version

for file in by-readers by-pkg-config embedded; do
    cmp "$work/by-cmake.pcd" "$work/$file.pcd"
done
echo "consumer: all outputs are the same"
