# SPDX-License-Identifier: Apache-2.0
#
# Targets: ExportLib::ExportLib (the exporters), ExportLib::Frame (what they stand on), ExportLib::Readers (file
# readers) and ExportLib::Tidewatch (loading, checking, placing), where they were
# built, ExportLib::tidewatch (the program). The libraries need nothing else at build time.
include("${CMAKE_CURRENT_LIST_DIR}/ExportLibTargets.cmake")
