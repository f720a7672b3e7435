// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "library/BuildingReader.hpp"
#include "library/check/found.hpp"
#include "support/BundleBuilder.hpp"

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Throws when it is asked.
class FailingCreator final : public Sheaf::CreativeArrayBase {
public:
    const std::type_info& elementType() const noexcept override { return typeid(float); }
    std::optional<Sheaf::Extents> extents() const override { return Sheaf::Extents{2}; }
    Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }
    Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
        throw Anchor::FormatError("block 7 is damaged");
    }
};

CheckReport check(BuildingReader::Build build) {
    const ScopedReader reader(std::move(build));
    return checkBytes("what the reader of the test takes");
}

TEST(CheckBundle, EveryArrayIsCreatedAndFaultyOnesAreTold) {
    const CheckReport report = check([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 2.5, "dunes")
            .field("Height", "a", Anchor::makeStrong<FailingCreator>())
            .field("Height", "b", Anchor::makeStrong<FailingCreator>())
            .field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}});
    });
    EXPECT_THAT(kindsOf(report), ElementsAre("fault array", "note no-system"));
    EXPECT_EQ(report.findings()[0].place, "grid \"dunes\" at time 2.5: field \"Height\", fragment \"a\"");
    EXPECT_EQ(report.findings()[0].message, "block 7 is damaged");
    EXPECT_EQ(report.findings()[0].count, 2U);
    EXPECT_EQ(report.format(), "built");
}

TEST(CheckBundle, ArraysHaveAValueForEachPoint) {
    const CheckReport report = check([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "dunes")
            .field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}})
            .field("Intensity", "", std::vector<unsigned short>{1, 2, 3});
    });
    EXPECT_THAT(kindsOf(report), ElementsAre("warning array-length", "note no-system"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("3 values for 2 points"));
}

TEST(CheckBundle, ValuesThatAreNotFiniteAreCounted) {
    const CheckReport report = check([](Sheaf::Bundle& bundle, const std::string&) {
        constexpr double nan = std::numeric_limits<double>::quiet_NaN();
        GridBuilder(bundle, 0, "dunes").field("Positions", "", Points{{1, nan, nan}, {4, 5, 6}, {1, 2, nan}});
    });
    EXPECT_EQ(findingOf(report, "not-finite").count, 2U);
}

TEST(CheckBundle, AFileThatItsReaderRefusesIsAFault) {
    const CheckReport report = check([](Sheaf::Bundle&, const std::string& path) {
        throw Anchor::FormatError(path + ": group 3: is not one");
    });
    EXPECT_THAT(kindsOf(report), ElementsAre("fault structure"));
    EXPECT_EQ(report.findings()[0].place, "group 3");
}

TEST(CheckBundle, WithoutASystemEachGridIsCounted) {
    const CheckReport report = check([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "a").field("Positions", "", Points{{1, 2, 3}});
        GridBuilder(bundle, 0, "b").field("Positions", "", Points{{1, 2, 3}});
    });
    EXPECT_EQ(findingOf(report, "no-system").count, 2U);
    EXPECT_EQ(findingOf(report, "no-system").place, "grid \"a\" at time 0");
}

} // namespace
} // namespace Tidewatch
