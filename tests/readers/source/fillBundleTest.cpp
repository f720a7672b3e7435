// SPDX-License-Identifier: Apache-2.0
#include "readers/source/fillBundle.hpp"

#include "anchor/Error.hpp"
#include "support/BundleText.hpp"
#include "support/TemporaryFolder.hpp"

#include <functional>
#include <limits>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Tidewatch::Structure;

/// Structures that another process tells of.
class ToldStructure : public ::testing::Test {
protected:
    ToldStructure() {
        Support::writeBytes(folder_ / "in.h5", "a file");
        input_ =
            std::make_shared<Tidewatch::Input>(folder_ / "in.h5", ConvLib::ReadOptions(),
                                               Tidewatch::ModuleKind::Bundles, Tidewatch::Reading::InProcess);
        Structure::Field field{"Height", "float64", {}};
        field.encoding = Sheaf::FieldEncoding{"Height"};
        Structure::Skeleton skeleton;
        skeleton.representations.push_back({"C", {field}});
        Structure::Grid grid;
        grid.name = "g";
        grid.charts = {{"C", "LOCAL_CS[\"a\"]"}};
        grid.statement.step = {1, 1, 1};
        grid.skeletons.push_back(skeleton);
        structure_.slices.push_back({0, {grid}});
    }

    [[nodiscard]] std::string fill() const {
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        static_cast<void>(Tidewatch::fillBundle(*bundle, structure_, input_));
        return Support::bundleText(*bundle);
    }

    void expectRefused(const std::string& what, const std::function<void(Structure::Grid&)>& change) const {
        Structure bad = structure_;
        change(bad.slices[0].grids[0]);
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        try {
            static_cast<void>(Tidewatch::fillBundle(*bundle, bad, input_));
            ADD_FAILURE() << "accepted, not: " << what;
        } catch (const Anchor::FormatError& error) {
            EXPECT_THAT(error.what(), AllOf(HasSubstr(folder_ / "in.h5"), HasSubstr(what)));
        }
        EXPECT_EQ(Support::bundleText(*bundle), "");
    }

    Support::TemporaryFolder folder_;
    std::shared_ptr<Tidewatch::Input> input_;
    Structure structure_;
};

TEST_F(ToldStructure, StatesSystemsStatementsAndEncodings) {
    EXPECT_THAT(fill(), AllOf(HasSubstr("chart C LOCAL_CS[\"a\"]"), HasSubstr("  numbers "),
                              HasSubstr("stored as [Height] [] float64")));
}

TEST_F(ToldStructure, InvalidStatementsAreRefused) {
    expectRefused("g: has a step of coordinates", [](auto& grid) { grid.statement.step = {1, -1, 1}; });
    expectRefused("g: has an offset of coordinates", [](auto& grid) {
        grid.statement.offset = {0, 0, std::numeric_limits<double>::infinity()};
    });
    expectRefused("g: has 10001 records", [](auto& grid) { grid.statement.records.resize(10'001); });
    expectRefused("g: has more reference systems, records", [](auto& grid) {
        grid.statement.records = {{"a", 1, "", std::vector<std::uint8_t>(std::size_t{128} << 20)}};
    });
    expectRefused("D: has more reference systems, records", [](auto& grid) {
        grid.charts.push_back({"D", std::string(std::size_t{128} << 20, 'a')});
    });
}

TEST_F(ToldStructure, InvalidEncodingsAreRefused) {
    const auto encode = [](Structure::Grid& grid) -> Sheaf::FieldEncoding& {
        return *grid.skeletons[0].representations[0].fields[0].encoding;
    };
    expectRefused("Height: is stored with a scale or an offset",
                  [&](auto& grid) { encode(grid).scale = 0.0; });
    expectRefused("Height: is stored with a scale or an offset",
                  [&](auto& grid) { encode(grid).offset = std::numeric_limits<double>::quiet_NaN(); });
    expectRefused("Height: is stored in a number type",
                  [&](auto& grid) { encode(grid).type = &typeid(long double); });
}

} // namespace
