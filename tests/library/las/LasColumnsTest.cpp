// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasColumns.hpp"

#include "las/LasPlan.hpp"
#include "library/las/LasColumnsBuilder.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LasColumns, ArraysGoByAttributeAndElementType) {
    const LasColumns columns = LasColumnsBuilder()
                                   .with("Intensity", std::vector<unsigned short>{1, 2})
                                   .with("ScanAngleRank", std::vector<short>{-3})
                                   .with("Amplitude", std::vector<float>{0.5F})
                                   .columns();
    EXPECT_THAT(valuesOf(columns.intensity), ElementsAre(1, 2));
    EXPECT_THAT(valuesOf(columns.scanAngle), ElementsAre(-3));
    EXPECT_THAT(valuesOf(columns.scanAngleRank), IsEmpty());
    EXPECT_THAT(valuesOf(columns.amplitudeFloat), ElementsAre(0.5F));
    EXPECT_THAT(valuesOf(columns.amplitude), IsEmpty());
    EXPECT_THAT(valuesOf(columns.positions), IsEmpty());
}

TEST(LasColumns, AnArrayOfAnotherTypeIsPassedOver) {
    const LasColumns columns = LasColumnsBuilder()
                                   .with("Intensity", std::vector<unsigned int>{1})
                                   .with("Height", std::vector<float>{1})
                                   .columns();
    columns.forEach([](std::string_view name, const auto& column) { EXPECT_FALSE(column) << name; });
}

TEST(LasColumns, ExtrasAreTheComponentsOfTheirArrays) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "", Support::Points{{1, 2, 3}, {4, 5, 6}})
        .field("Normal", "", std::vector<Geom::PhysicalSpace::vector>{{1, 2, 3}, {4, 5, 6}})
        .field("Zeal", "", std::vector<short>{-7});
    ExportLib::LasSettings carrying;
    carrying.carry = true;
    const auto plan = ExportLib::LasPlan::of(grid.grid(), carrying, [](const std::string&) { return true; });
    const LasColumns columns = LasColumns::load(plan, plan.fragments.at(0));
    ASSERT_EQ(columns.extras.size(), 4U);
    EXPECT_EQ(columns.extras[1].value(1), 5.0);
    EXPECT_EQ(columns.extras[3].value(0), -7.0);
    EXPECT_EQ(columns.extras[3].value(1), std::nullopt);
}

/// Whether a field of that name and element type becomes the attribute of its name.
template <class T>
bool isTaken(const std::string& attribute) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder grid(*bundle, 0, "g");
    grid.field(attribute, "", std::vector<T>(1));
    if (attribute != "Positions")
        grid.field("Positions", "", Support::Points{{1, 2, 3}});
    ExportLib::LasSettings carrying;
    carrying.carry = true;
    const auto plan = ExportLib::LasPlan::of(grid.grid(), carrying, [](const std::string&) { return true; });
    const auto& captures = plan.fragments.at(0).captures;
    return std::any_of(captures.begin(), captures.end(),
                       [&](const auto& one) { return one.attribute == attribute; });
}

TEST(LasColumns, ThereIsAColumnForWhateverTheExporterTakes) {
    std::set<std::string> taken;
    for (const std::string& attribute : ExportLib::LasPlan::attributes(true)) {
        Sheaf::ElementTypes::visitFirst(
            [&](auto tag) {
                using T = typename decltype(tag)::type;
                if (isTaken<T>(attribute))
                    taken.insert(attribute + " " + typeid(T).name());
                return false;
            },
            [](auto) {});
    }
    std::set<std::string> columns;
    const LasColumns none;
    none.forEach([&](std::string_view name, const auto& column) {
        using T = typename std::remove_cvref_t<decltype(column->base_vector())>::value_type;
        columns.insert(std::string(name) + " " + typeid(T).name());
    });
    EXPECT_EQ(columns, taken);
}

} // namespace
} // namespace Tidewatch
