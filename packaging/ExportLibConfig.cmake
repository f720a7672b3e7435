# SPDX-License-Identifier: Apache-2.0
#
# Targets: ExportLib::ExportLib (the exporters), ExportLib::Frame (their base), and if they were built
# ExportLib::Readers (file readers), ExportLib::Tidewatch (loading, checking, placing) and ExportLib::tidewatch (the
# program). The libraries need nothing else at build time.
include("${CMAKE_CURRENT_LIST_DIR}/ExportLibTargets.cmake")
