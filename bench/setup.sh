#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# Installs what the benchmarks compare themselves with: the Point Cloud Library. It is large (about 2 GB with what it
# draws in) and nothing but bench/ uses it, so it is not part of the project's own set-up. Running it again is harmless.
set -eu

if ! command -v apt-get >/dev/null 2>&1; then
    echo "setup: no apt-get here; install the development files of PCL (io, filters) by hand" >&2
    exit 1
fi
if [ "$(dpkg-query -W -f '${db:Status-Status}' libpcl-dev 2>/dev/null || true)" = installed ]; then
    echo "setup: libpcl-dev is installed already"
    exit 0
fi

asRoot=
if [ "$(id -u)" -ne 0 ]; then
    asRoot=sudo
fi
echo "setup: installing libpcl-dev (large; this takes some minutes)"
$asRoot apt-get update -qq
$asRoot env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends libpcl-dev
echo "setup: done"
