// SPDX-License-Identifier: Apache-2.0
#include "library/input/Inputs.hpp"

#include "convlib/Reader.hpp"
#include "library/BuildingReader.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

/// Keeps the options that it is called with.
class KeepingReader final : public ConvLib::Reader {
public:
    explicit KeepingReader(ConvLib::ReadOptions& kept) : kept_(kept) {}
    std::string name() const override { return "kept file"; }
    bool recognises(const std::string& path, std::span<const std::byte>) const override {
        return path.ends_with(".kept");
    }
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle&, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override {
        kept_ = options;
        return Anchor::makeStrong<BuiltReport>(path, std::vector<std::string>{});
    }

private:
    ConvLib::ReadOptions& kept_;
};

TEST(Inputs, ReadersLearnWhichFieldsAreExpectedEvenAfterTheInputsAreGone) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.kept", "");
    ConvLib::ReadOptions options;
    ConvLib::registerReader(Anchor::makeStrong<KeepingReader>(options));
    {
        InputOptions what;
        what.files = {folder / "a.kept"};
        const Inputs inputs(what);
        EXPECT_TRUE(options.IsWanted("Positions"));
        EXPECT_TRUE(options.IsWanted("Intensity"));
        inputs.expectFields({"Positions"});
        EXPECT_TRUE(options.IsWanted("Positions"));
        EXPECT_FALSE(options.IsWanted("Intensity"));
    }
    EXPECT_FALSE(options.IsWanted("Intensity"));
    ConvLib::unregisterReader("kept file");
}

TEST(Inputs, OfABundleInMemoryGiveSomeOfItsPoints) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder(*bundle, 0, "a")
        .field("Positions", "", Support::Points{{0, 0, 0}, {5, 5, 5}, {9, 9, 9}});
    Support::GridBuilder(*bundle, 0, "b").field("Positions", "", Support::Points{{1, 1, 1}});
    const Inputs inputs(bundle);
    InputOptions what;
    what.points.box.emplace();
    what.points.box->upper = {6, 6, 6};
    what.merge.emplace();
    const Inputs chosen = inputs.with(what);
    chosen.countChosen();
    const auto grid = chosen.bundle()->slices().at(0).lock()->grids().at("merged").lock();
    std::uint64_t points = 0;
    grid->skeletons()
        .findVertices(-1)
        ->representations()(grid->findCartesianChart(""))
        ->Positions()
        ->forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
            points += data->extents()->elementCount().value();
            return true;
        });
    EXPECT_EQ(points, 3U);
    EXPECT_EQ(bundle->slices().at(0).lock()->grids().size(), 2U);
    EXPECT_FALSE(inputs.isChosen());
    EXPECT_TRUE(chosen.isChosen());
}

TEST(Inputs, MayExpectAllFieldsAgain) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.kept", "");
    ConvLib::ReadOptions options;
    ConvLib::registerReader(Anchor::makeStrong<KeepingReader>(options));
    InputOptions what;
    what.files = {folder / "a.kept"};
    const Inputs inputs(what);
    inputs.expectFields({"Positions"});
    inputs.expectAllFields();
    EXPECT_TRUE(options.IsWanted("Intensity"));
    ConvLib::unregisterReader("kept file");
}

} // namespace
} // namespace Tidewatch
