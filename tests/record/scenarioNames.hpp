// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "record/Stage.hpp"
#include "record/expectation.hpp"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Record {

[[nodiscard]] inline std::string upperCamelCase(std::string name) {
    if (!name.empty() && name[0] >= 'a' && name[0] <= 'z')
        name[0] = static_cast<char>(name[0] - 'a' + 'A');
    return name;
}

template <class Exporter>
std::string nameOf(const ::testing::TestParamInfo<Scenario<Exporter>>& info) {
    return upperCamelCase(info.param.name);
}

template <class Exporter>
std::vector<Scenario<Exporter>> together(std::vector<Scenario<Exporter>> first,
                                         const std::vector<Scenario<Exporter>>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// A record whose scenario has been renamed or removed would hold nothing to account.
template <class Exporter>
void expectNoOtherRecords(const std::string& folder, const std::vector<Scenario<Exporter>>& scenarios) {
    if (isBeingRecorded())
        GTEST_SKIP() << "the records are being written";
    std::size_t records = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(TIDEWATCH_RECORD_EXPECTED) / folder)) {
        ++records;
        bool isKnown = false;
        for (const Scenario<Exporter>& scenario : scenarios)
            isKnown = isKnown || entry.path().filename() == upperCamelCase(scenario.name) + ".txt";
        EXPECT_TRUE(isKnown) << entry.path().filename() << " has no scenario";
    }
    EXPECT_EQ(records, scenarios.size());
}

} // namespace Record
