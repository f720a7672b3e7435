// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Record {

/// Where two lists of lines part, with the lines around; empty for equal lists.
[[nodiscard]] std::string difference(const std::vector<std::string>& expected,
                                     const std::vector<std::string>& actual);

/// Whether the environment has TIDEWATCH_RECORD_UPDATE=1: the lists are written, not compared.
[[nodiscard]] bool isBeingRecorded();

/// Compares lines with a file below tests/record/expected; while being recorded, writes the file and counts
/// the test as skipped.
void expectRecorded(const std::string& name, const std::vector<std::string>& lines);

/// With TIDEWATCH_RECORD_DUMP in the environment, writes lines to a file of that folder: of runs of which
/// only a hash is kept, so that two builds can be compared.
void dump(const std::string& name, const std::vector<std::string>& lines);

} // namespace Record
