#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the HDF5 and LASzip libraries from Debian's sources into build/fuzz-libraries, with AddressSanitizer and
# libFuzzer's coverage instrumentation, so that out-of-bounds accesses in these libraries are detected and the fuzzers
# can explore them. For "scripts/fuzz.sh --instrumented"; runs on Debian 12 and 13, changes nothing on the system, and
# does nothing if the libraries have already been built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source-path=SCRIPTDIR
. scripts/apt-state.sh

prefix=$PWD/build/fuzz-libraries
done=$prefix/.done
if [[ -e $done ]]; then
    exit 0
fi
fail() { printf 'fuzz-libraries: %s\n' "$*" >&2; exit 1; }

# shellcheck disable=SC1091
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
case $codename in
# LASzip is packaged from Debian 13 on.
bookworm) releases=(bookworm trixie) sources=(hdf5/bookworm laszip/trixie) ;;
trixie) releases=(trixie) sources=(hdf5/trixie laszip/trixie) ;;
*) fail "takes the libraries' sources from Debian 12 or 13; this is another system" ;;
esac
archive=$(debian_archive "$codename")
[[ -n $archive ]] || fail "the apt sources of this machine name no main Debian archive"

rm -rf "$prefix"
mkdir -p "$prefix/scratch/sources"
echo "fuzz-libraries: downloading the sources ${sources[*]}"
make_apt_state "$prefix/scratch/apt" "$archive" deb-src "${releases[@]}"
apt-get -qq -c "$prefix/scratch/apt/apt.conf" update
# Without Debian's patches, which only concern how they are built.
(cd "$prefix/scratch/sources" && apt-get -qq -c "$prefix/scratch/apt/apt.conf" -o APT::Sandbox::User=root source \
    --download-only --tar-only --only-source "${sources[@]}")
for archive in "$prefix"/scratch/sources/*; do
    tar -xf "$archive" -C "$prefix/scratch/sources"
    rm "$archive"
done

# Programs that run during HDF5's build leak memory.
export ASAN_OPTIONS=detect_leaks=0

# Runs a command with its output in a file, the end of which is shown if the command fails.
quietly() {
    if ! "$@" >"$prefix/scratch/log" 2>&1 </dev/null; then
        tail -n 50 "$prefix/scratch/log" >&2
        fail "failed: $*"
    fi
}

# Usage: build NAME SOURCE_FOLDER OPTION...
build() {
    # Without the libraries' own assertions, which Debian's packages do not have either.
    local flags='-O1 -g1 -DNDEBUG -fno-omit-frame-pointer -fsanitize=address,fuzzer-no-link'
    echo "fuzz-libraries: building $1"
    mkdir "$2/build"
    cd "$2/build" # HDF5 expects the output of its checks in the current folder
    quietly cmake .. -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=None \
        -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_POSITION_INDEPENDENT_CODE=ON \
        -DCMAKE_INSTALL_PREFIX="$prefix" "${@:3}"
    quietly cmake --build . -j "$(nproc)"
    quietly cmake --install .
}

build HDF5 "$prefix"/scratch/sources/hdf5-* -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF -DHDF5_BUILD_TOOLS=OFF \
    -DHDF5_BUILD_EXAMPLES=OFF -DHDF5_BUILD_CPP_LIB=OFF -DHDF5_BUILD_HL_LIB=OFF -DHDF5_ENABLE_Z_LIB_SUPPORT=ON
build LASzip "$prefix"/scratch/sources/LASzip-* -DLASZIP_BUILD_STATIC=ON
rm -r "$prefix/scratch"
touch "$done"
echo "fuzz-libraries: they are in build/fuzz-libraries"
