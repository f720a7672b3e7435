// SPDX-License-Identifier: Apache-2.0
#include "library/export/propertyLosses.hpp"

#include "library/crs/ReferenceSystem.hpp"
#include "support/BundleBuilder.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PropertyLosses : public ::testing::Test {
protected:
    PropertyLosses() {
        Support::GridBuilder grid(*bundle_, 2.5, "dunes");
        grid.field("Positions", "", Support::Points{{1, 2, 3}});
        grid.grid().findChart("")->setReferenceSystem(*ReferenceSystem::fromCode("EPSG:25832").ogcText());
        Sheaf::FileStatement statement;
        statement.gpsTime = Sheaf::FileStatement::GpsTime::Adjusted;
        statement.fileSourceId = 7;
        statement.records = {{"Somebody", 1, "", {}}, {"LASF_Projection", 2112, "", {}}};
        grid.grid().setStatement(std::move(statement));
    }

    [[nodiscard]] std::vector<std::string> losses(const KeptProperties& kept,
                                                  const std::string& grid = "dunes") const {
        Losses found;
        addPropertyLosses({2.5, grid}, *bundle_, kept, found);
        std::vector<std::string> messages;
        for (const Loss& loss : found.list("PCD"))
            messages.push_back(loss.kind + ": " + loss.message);
        return messages;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(PropertyLosses, WhatAGridStatesAndAFormatDoesNotCarryIsOneLoss) {
    EXPECT_THAT(
        losses({}),
        ElementsAre(
            "properties: grid \"dunes\" at time 2.5: not carried: coordinate reference system ETRS89 / UTM "
            "zone 32N (EPSG:25832), GPS time encoding (adjusted standard time), 1 record, file source ID "
            "7"));
}

TEST_F(PropertyLosses, WhatIsCarriedIsNoLoss) {
    KeptProperties kept{true, true, true, true};
    EXPECT_THAT(losses(kept), IsEmpty());
    kept.records = false;
    EXPECT_THAT(losses(kept), ElementsAre(HasSubstr("not carried: 1 record")));
}

TEST_F(PropertyLosses, GridThatIsGoneLosesNothing) {
    EXPECT_THAT(losses({}, "flats"), IsEmpty());
}

} // namespace
} // namespace Tidewatch
