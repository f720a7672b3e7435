#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Generates pages from the comments of the installed headers, in build/api/html; a warning of Doxygen is an
# error.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/api
(cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = build/api") | doxygen -
echo "api: build/api/html/index.html"
