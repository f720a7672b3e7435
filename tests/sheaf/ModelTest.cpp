// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "sheaf/Bundle.hpp"
#include "support/BundleBuilder.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string standardChart(Sheaf::Grid::standardChart);

std::vector<unsigned short> one() {
    return {1};
}

template <class Call>
std::string messageOf(Call&& call) {
    try {
        call();
    } catch (const Anchor::Error& error) {
        return error.what();
    }
    return "no error";
}

TEST(Bundle, SlicesStandInAscendingTime) {
    Sheaf::Bundle bundle;
    for (const double time : {3.0, -1.0, 2.0})
        bundle.makeSlice(time);
    std::vector<double> times;
    for (const auto& [time, slice] : bundle.slices())
        times.push_back(time);
    EXPECT_THAT(times, ElementsAre(-1.0, 2.0, 3.0));
}

TEST(Bundle, SameTimeGivesTheSameSlice) {
    Sheaf::Bundle bundle;
    EXPECT_EQ(bundle.makeSlice(1.5), bundle.makeSlice(1.5));
    EXPECT_EQ(bundle.makeSlice(0.0), bundle.makeSlice(-0.0));
    EXPECT_FALSE(std::signbit(bundle.makeSlice(-0.0)->time()));
}

TEST(Bundle, TimeThatIsNotFiniteIsRefused) {
    Sheaf::Bundle bundle;
    EXPECT_THROW(bundle.makeSlice(std::numeric_limits<double>::quiet_NaN()), Anchor::ModelError);
    EXPECT_THROW(bundle.makeSlice(std::numeric_limits<double>::infinity()), Anchor::ModelError);
    EXPECT_TRUE(bundle.slices().empty());
}

TEST(Bundle, RemovedSliceExpiresInTheMap) {
    Sheaf::Bundle bundle;
    bundle.makeSlice(1.0);
    EXPECT_FALSE(bundle.slices().at(1.0).expired());
    bundle.removeSlice(1.0);
    EXPECT_TRUE(bundle.slices().at(1.0).expired());
    EXPECT_TRUE(bundle.makeSlice(1.0));
    EXPECT_FALSE(bundle.slices().at(1.0).expired());
}

TEST(Slice, TwoGridsOfOneNameAreRefusedNamingBothOrigins) {
    Sheaf::Bundle bundle;
    const auto slice = bundle.makeSlice(0);
    slice->makeGrid("coast", "a.laz");
    const std::string message = messageOf([&] { slice->makeGrid("coast", "b.las"); });
    EXPECT_THAT(message, HasSubstr("coast"));
    EXPECT_THAT(message, HasSubstr("a.laz"));
    EXPECT_THAT(message, HasSubstr("b.las"));
}

TEST(Slice, RemovedGridExpiresAndItsNameIsFree) {
    Sheaf::Bundle bundle;
    const auto slice = bundle.makeSlice(0);
    slice->makeGrid("coast");
    EXPECT_TRUE(slice->accessSlice());
    slice->removeGrid("coast");
    EXPECT_TRUE(slice->grids().at("coast").expired());
    EXPECT_FALSE(slice->accessSlice());
    EXPECT_TRUE(slice->makeGrid("coast"));
}

TEST(Grid, HighestHomogeneousVertexRefinementIsFoundBelowTheBound) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g", {1, 1, 1});
    builder.skeleton({3, 3, 3}).skeleton({9, 9, 8}).skeleton({7, 7, 7}, 0, 1);
    const Sheaf::Grid& grid = builder.grid();
    EXPECT_EQ(grid.findHighestHomogenousVertexRefinement(100000000)->refinementLevel(), 3);
    EXPECT_EQ(grid.findHighestHomogenousVertexRefinement(2)->refinementLevel(), 1);
    EXPECT_FALSE(grid.findHighestHomogenousVertexRefinement(0));
}

TEST(Grid, WithoutVerticesHasNoVertexRefinement) {
    Sheaf::Bundle bundle;
    const auto grid = bundle.makeSlice(0)->makeGrid("g");
    EXPECT_FALSE(grid->findHighestHomogenousVertexRefinement(100000000));
    grid->skeletons().make({1, {}});
    EXPECT_FALSE(grid->findHighestHomogenousVertexRefinement(100000000));
}

TEST(SkeletonMap, FindsVerticesByLevelAndTheHighestForMinusOne) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g", {});
    builder.skeleton({2, 2}).skeleton({5, 4});
    const Sheaf::SkeletonMap& skeletons = builder.grid().skeletons();
    EXPECT_TRUE(skeletons.findVertices(0)->refinement().empty());
    EXPECT_THAT(skeletons.findVertices(2)->refinement(), ElementsAre(2, 2));
    EXPECT_EQ(skeletons.findVertices(-1), skeletons.findVertices(2));
    EXPECT_FALSE(skeletons.findVertices(1));
}

TEST(SkeletonMap, TwoOfOneDimensionAndRefinementAreRefused) {
    Sheaf::SkeletonMap skeletons;
    skeletons.make({0, {1, 2}});
    EXPECT_THAT(messageOf([&] { skeletons.make({0, {1, 2}}); }), HasSubstr("1, 2"));
}

TEST(SkeletonMap, FindsASkeletonByDimensionAndRefinementToAddToIt) {
    Sheaf::Grid grid("g");
    const auto made = grid.skeletons().make({1, {2, 2}});
    EXPECT_EQ(grid.skeletons().find({1, {2, 2}}), made);
    EXPECT_FALSE(grid.skeletons().find({0, {2, 2}}));
    EXPECT_FALSE(grid.skeletons().find({1, {2}}));
}

TEST(SkeletonMap, OrdersByDimensionAndThenByRefinement) {
    Sheaf::SkeletonMap skeletons;
    skeletons.make({1, {}});
    skeletons.make({0, {2}});
    skeletons.make({0, {1, 5}});
    skeletons.make({0, {}});
    std::vector<Sheaf::Skeleton::Key> keys;
    skeletons.forEach([&](const Sheaf::Skeleton& skeleton) {
        keys.push_back(skeleton.key());
        return true;
    });
    EXPECT_THAT(keys, ElementsAre(Sheaf::Skeleton::Key{0, {}}, Sheaf::Skeleton::Key{0, {1, 5}},
                                  Sheaf::Skeleton::Key{0, {2}}, Sheaf::Skeleton::Key{1, {}}));
}

TEST(Skeleton, LevelIsZeroWithoutEntriesCommonValueOrMinusTheFirstDifference) {
    EXPECT_EQ(Sheaf::Skeleton({0, {}}).refinementLevel(), 0);
    EXPECT_EQ(Sheaf::Skeleton({0, {4}}).refinementLevel(), 4);
    EXPECT_EQ(Sheaf::Skeleton({0, {2, 2, 2}}).refinementLevel(), 2);
    EXPECT_EQ(Sheaf::Skeleton({0, {1, 2, 2}}).refinementLevel(), -1);
    EXPECT_EQ(Sheaf::Skeleton({0, {2, 2, 3}}).refinementLevel(), -2);
    EXPECT_FALSE(Sheaf::Skeleton({0, {2, 2, 3}}).isHomogeneous());
}

TEST(Grid, DefaultChartIsTheStandardOneElseTheFirstByName) {
    Sheaf::Bundle bundle;
    const auto grid = bundle.makeSlice(0)->makeGrid("g");
    EXPECT_FALSE(grid->findCartesianChart(""));
    grid->declareCartesianChart("local");
    const auto site = grid->declareCartesianChart("a-site");
    EXPECT_EQ(grid->findCartesianChart(""), site);
    const auto standard = grid->declareCartesianChart(standardChart);
    EXPECT_EQ(grid->findCartesianChart(""), standard);
    EXPECT_EQ(grid->findCartesianChart("a-site"), site);
    EXPECT_FALSE(grid->findCartesianChart("elsewhere"));
}

TEST(Grid, ChartMadeByAnExporterIsNoDefaultUntilItIsUsed) {
    Sheaf::Bundle bundle;
    const auto grid = bundle.makeSlice(0)->makeGrid("g");
    const auto local = grid->declareCartesianChart("local");
    const auto made = grid->makeCartesianChart(standardChart, 0);
    EXPECT_EQ(grid->makeCartesianChart(standardChart, 7), made);
    EXPECT_EQ(grid->findCartesianChart(""), local);
    EXPECT_EQ(grid->findCartesianChart(standardChart), made);
    grid->skeletons().make({0, {}})->representations().make(made);
    EXPECT_EQ(grid->findCartesianChart(""), made);
}

TEST(Grid, FieldIsFoundByChartNameAndSkeleton) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g");
    builder.field("Intensity", "", one());
    const auto chart = builder.grid().findCartesianChart("");
    EXPECT_TRUE(builder.grid().getField(chart, "Intensity", builder.currentSkeleton()));
    EXPECT_FALSE(builder.grid().getField(chart, "intensity", builder.currentSkeleton()));
    EXPECT_FALSE(builder.grid().getField(nullptr, "Intensity", builder.currentSkeleton()));
    EXPECT_FALSE(builder.grid().getField(chart, "Intensity", nullptr));
}

TEST(Representation, LookupsThatFailGiveTheNullField) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g");
    builder.field("Positions", "", Points(1));
    const Sheaf::Representation& representation = *builder.representation();
    EXPECT_TRUE(representation.Positions());
    EXPECT_EQ(representation.findField(representation.findFieldID("Positions")), representation.Positions());
    EXPECT_EQ(representation.findField("Height"), Sheaf::Field::NullPtrField());
    EXPECT_EQ(representation.findField(static_cast<const char*>(nullptr)), Sheaf::Field::NullPtrField());
    EXPECT_FALSE(representation.findFieldID("Height"));
    EXPECT_FALSE(representation.findField(Anchor::StrongPtr<Sheaf::FieldID>()));
    EXPECT_FALSE(Sheaf::Field::NullPtrField());
}

TEST(Representation, FieldIsFoundOrMadeOfOneElementType) {
    Sheaf::Representation representation;
    const auto made = representation.findOrMakeField("Height", typeid(float));
    EXPECT_EQ(representation.findField("Height"), made);
    EXPECT_EQ(representation.findOrMakeField("Height", typeid(float)), made);
    EXPECT_THROW((void)representation.findOrMakeField("Height", typeid(double)), Anchor::ModelError);
}

TEST(Representation, ARemovedFieldMayBeMadeAgainOfAnotherType) {
    Sheaf::Representation representation;
    const auto first = representation.makeField("Height", typeid(float));
    representation.removeField("Depth");
    representation.removeField("Height");
    EXPECT_FALSE(representation.findField("Height"));
    const auto second = representation.makeField("Height", typeid(double));
    EXPECT_NE(first, second);
    EXPECT_EQ(first->getElementType(), typeid(float));
}

TEST(Representation, FieldsStandInByteOrderAndNamesAreUnique) {
    Sheaf::Representation representation;
    for (const char* const name : {"b", "a", "Z", "\xc3\xa9"})
        representation.makeField(name, typeid(float));
    std::vector<std::string> names;
    representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        names.push_back(id.name());
        return true;
    });
    EXPECT_THAT(names, ElementsAre("Z", "a", "b", "\xc3\xa9"));
    EXPECT_THROW(representation.makeField("a", typeid(double)), Anchor::ModelError);
}

TEST(Field, FragmentsStandInByteOrderDataWithoutFragmentFirst) {
    Sheaf::Field field(typeid(unsigned short));
    for (const char* const name : {"10", "2", ""})
        field.addFragment(*name != '\0' ? Anchor::makeStrong<Sheaf::FragmentID>(name) : nullptr,
                          Support::held(one()));
    const auto identifiers = field.getFragmentIDs();
    ASSERT_EQ(identifiers.size(), 3U);
    EXPECT_FALSE(identifiers[0]);
    EXPECT_EQ(identifiers[1]->name(), "10");
    EXPECT_EQ(identifiers[2]->name(), "2");
}

TEST(Field, FragmentIsTheSameWhenItsNameIs) {
    Sheaf::Field field(typeid(unsigned short));
    const auto data = Support::held(one());
    field.addFragment(Anchor::makeStrong<Sheaf::FragmentID>("a"), data);
    EXPECT_EQ(field.getCreator(Anchor::makeStrong<Sheaf::FragmentID>("a")), data);
    EXPECT_FALSE(field.getCreator(Anchor::makeStrong<Sheaf::FragmentID>("b")));
    EXPECT_FALSE(field.getCreator(nullptr));
    EXPECT_THROW(field.addFragment(Anchor::makeStrong<Sheaf::FragmentID>("a"), data), Anchor::ModelError);
    EXPECT_THROW(field.addFragment(nullptr, nullptr), Anchor::ModelError);
}

class Collector final : public Sheaf::FragmentIterator {
public:
    bool apply(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
               const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>&) override {
        names.push_back(fragment->name());
        return names.size() < limit;
    }
    std::vector<std::string> names;
    std::size_t limit = 100;
};

TEST(Field, IterationAsksTheSelectorAndStopsOnFalse) {
    Sheaf::Field field(typeid(unsigned short));
    for (const char* const name : {"a", "b", "c", "d"})
        field.addFragment(Anchor::makeStrong<Sheaf::FragmentID>(name), Support::held(one()));
    Collector all;
    field.iterate(all);
    EXPECT_THAT(all.names, ElementsAre("a", "b", "c", "d"));
    Collector two;
    two.limit = 2;
    field.iterate(two, [](const auto& fragment) { return fragment->name() != "a"; });
    EXPECT_THAT(two.names, ElementsAre("b", "c"));
}

TEST(Grid, FragmentsAreSharedByNameAndCarryOverlaps) {
    Sheaf::Grid grid("g");
    const auto fragment = grid.makeFragment("tile");
    EXPECT_EQ(grid.makeFragment("tile"), fragment);
    using Low = Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>;
    using High = Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>;
    Sheaf::MultiIndex<3> overlap{9, 9, 9};
    EXPECT_FALSE(Low::get(fragment, overlap));
    EXPECT_FALSE(Low::get(nullptr, overlap));
    EXPECT_EQ(overlap, (Sheaf::MultiIndex<3>{9, 9, 9}));
    Low::set(*fragment, {1, 2, 0});
    EXPECT_TRUE(Low::get(fragment, overlap));
    EXPECT_EQ(overlap, (Sheaf::MultiIndex<3>{1, 2, 0}));
    EXPECT_FALSE(High::get(fragment, overlap));
}

TEST(RepresentationMap, ChartsComeByNameBeforeSkeletons) {
    Sheaf::Grid grid("g");
    const auto vertices = grid.skeletons().make({0, {}});
    const auto edges = grid.skeletons().make({1, {}});
    auto& map = edges->representations();
    const auto onVertices = map.make(vertices);
    const auto second = map.make(grid.makeCartesianChart("b", 0));
    const auto first = map.make(grid.makeCartesianChart("a", 0));
    EXPECT_EQ(map.make(vertices), onVertices);
    std::vector<const Sheaf::Representation*> order;
    map.forEach([&](const Sheaf::BaseSpace&, const Sheaf::Representation& representation) {
        order.push_back(&representation);
        return true;
    });
    EXPECT_THAT(order, ElementsAre(first.get(), second.get(), onVertices.get()));
    EXPECT_FALSE(map(nullptr));
    EXPECT_THROW(map.make(nullptr), Anchor::ModelError);
}

TEST(SkeletonMap, WalkVisitsEveryFragmentOfEveryRepresentationInOrder) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g", {1});
    builder.field("b", "", one()).chart("zone").field("c", "y", one()).field("c", "x", one());
    builder.skeleton({}).field("a", "", one());
    std::vector<std::string> stops;
    const auto visit = [&](const Sheaf::FieldFragment& stop) {
        stops.push_back(std::to_string(stop.skeleton.refinementLevel()) + stop.id.name() +
                        (stop.fragment ? stop.fragment->name() : ""));
        return stops.size() < 3;
    };
    builder.grid().skeletons().iterate_all(visit);
    EXPECT_THAT(stops, ElementsAre("0a", "1b", "1cx"));
}

TEST(SkeletonMap, FieldWithoutFragmentsIsNotCalledFor) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g");
    builder.representation()->makeField("Empty", typeid(float));
    builder.field("Full", "", one());
    class Names final : public Sheaf::ConstSkeletonIterator {
    public:
        bool apply(const Sheaf::Skeleton&, const std::string& fieldName,
                   const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>&) override {
            names.push_back(fieldName);
            return true;
        }
        std::vector<std::string> names;
    } visitor;
    builder.grid().skeletons().iterate(visitor);
    EXPECT_THAT(visitor.names, ElementsAre("Full"));
}

TEST(Skeleton, FieldsOfAllRepresentationsAreIteratedUntilFalse) {
    Sheaf::Bundle bundle;
    GridBuilder builder(bundle, 0, "g");
    builder.field("a", "", one()).field("b", "", one()).chart("zone").field("a", "", one());
    std::vector<std::string> names;
    const auto collect = [&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        names.push_back(id.name());
        return names.size() < 3;
    };
    builder.currentSkeleton()->iterate_fields(collect);
    EXPECT_THAT(names, ElementsAre("a", "b", "a"));
    names.resize(2);
    builder.currentSkeleton()->iterate_fields(collect);
    EXPECT_EQ(names.size(), 3U);
}

} // namespace
