#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Damages bundle files and rasters in every way that the tests know, of which CI tries a sample: each byte of each message
# of each object header set to seven values and each message cut at each length, checksums repaired; each byte of the
# directory of a GeoTIFF; and so on. Each time an error that names the file has to come out, or values that the file holds.
# Takes hours. Usage: scripts/damage.sh [PRESET], which is ci-release unless given and has to be built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
TIDEWATCH_THOROUGH=1 ctest --test-dir "build/${1:-ci-release}" --tests-regex 'Damaged|Repaired|Mangled' -j "$(nproc)" \
    --timeout 36000 --output-on-failure --no-tests=error
