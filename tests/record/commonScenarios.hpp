// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "record/Stage.hpp"

#include <string>

/// Scenarios that every exporter is run through: what they are about is the walk that all of them share.
namespace Record::Common {

using Point = Geom::PhysicalSpace::point;

/// A grid that every exporter writes: two fragments with positions and intensities.
template <class E>
SceneGrid survey(Stage<E>& stage, double time, const std::string& name, double start = 0) {
    SceneGrid grid = stage.grid(time, name);
    grid.skeleton()
        .positions("f0", 3, start)
        .positions("f1", 2, start + 10)
        .template data<unsigned short>("Intensity", "f0", {10, 20, 30})
        .template data<unsigned short>("Intensity", "f1", {40, 50});
    return grid;
}

template <class E>
void oneGrid(Stage<E>& stage) {
    survey(stage, 0, "a");
}

template <class E>
void noReporter(Stage<E>& stage) {
    survey(stage, 0, "a");
    stage.exporter.Progress.reset();
}

template <class E>
void emptyBundle(Stage<E>& stage) {
    stage.bundle->makeSlice(4);
}

template <class E>
void noBundle(Stage<E>& stage) {
    survey(stage, 0, "a");
    stage.exporter.bundleptr.reset();
}

template <class E>
void expiredBundle(Stage<E>& stage) {
    stage.exporter.bundleptr = Anchor::makeStrong<Sheaf::Bundle>();
}

template <class E>
void severalSlicesAndGrids(Stage<E>& stage) {
    for (const double time : {2.5, -1.0, 0.0, 1e6}) {
        for (const char* const name : {"c", "a", "b"})
            survey(stage, time, name, time == 1e6 ? 0 : 4 * time);
    }
    stage.onTime = [](double time, int) { return time != 0; };
    stage.onGrid = [](const std::string& name, int nth) { return name != "b" || nth == 2; };
}

template <class E>
void goneSlicesAndGrids(Stage<E>& stage) {
    for (const double time : {1.0, 2.0, 3.0}) {
        for (const char* const name : {"a", "b", "c"})
            survey(stage, time, name);
    }
    stage.bundle->removeSlice(2);
    const auto slice = stage.bundle->slices().at(3).lock();
    slice->removeGrid("a");
    slice->removeGrid("c");
}

template <class E>
void gridsWithoutWhatIsNeeded(Stage<E>& stage) {
    stage.grid(0, "a without skeleton");
    stage.grid(0, "b without representation").skeleton();
    stage.grid(0, "c without positions").skeleton().template data<unsigned short>("Intensity", "f0", {1, 2});
    stage.grid(0, "d without a vertex skeleton").skeleton({}, 0, 1).positions("f0", 2);
    stage.grid(0, "e with uneven refinement").skeleton({1, 2}).positions("f0", 2);
    stage.grid(0, "f with positions elsewhere")
        .skeleton()
        .positions("f0", 2)
        .skeleton({1, 1})
        .template data<unsigned short>("Intensity", "f0", {1, 2});
    stage.grid(0, "g with a chart only").grid().declareCartesianChart("local");
    stage.grid(0, "h with an empty field").skeleton().template emptyField<Point>("Positions");
    survey(stage, 0, "i");
}

/// Skeletons of all kinds; the callers set the level that is asked for.
template <class E>
void manySkeletons(Stage<E>& stage) {
    SceneGrid grid = stage.grid(0, "a");
    const auto fill = [&](std::size_t count, double start) {
        grid.positions("f0", count, start)
            .template data<unsigned short>("Intensity", "f0", std::vector<unsigned short>(count, 7));
    };
    grid.skeleton();
    fill(2, 0);
    grid.skeleton({0, 0, 0});
    fill(3, 10);
    grid.skeleton({1, 2, 2});
    fill(2, 20);
    grid.skeleton({2, 2, 1});
    fill(2, 30);
    grid.skeleton({2, 2, 2});
    fill(4, 40);
    grid.skeleton({2}, 5);
    fill(2, 50);
    grid.skeleton({1, 1}, -1);
    fill(2, 60);
    grid.skeleton({9}, 0, 1);
    fill(2, 70);
    grid.skeleton({2, 2}, 0, 2);
    fill(2, 80);
}

template <class E>
void highestSkeletonIsMarked(Stage<E>& stage) {
    stage.grid(0, "a").skeleton({1}).positions("f0", 2).skeleton({4, 4}, 1).positions("f0", 3);
}

template <class E>
void severalCharts(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .chart("local")
        .positions("f0", 2, 100)
        .template data<unsigned short>("Intensity", "f0", {1, 2})
        .template data<unsigned char>("Classification", "f0", {3, 4})
        .chart(std::string(Sheaf::Grid::standardChart))
        .positions("f0", 3)
        .template data<unsigned short>("Intensity", "f0", {5, 6, 7})
        .chart("zone")
        .positions("f0", 1)
        .template data<float>("Height", "f0", {1.5F});
    survey(stage, 0, "b");
}

template <class E>
void fieldsOnAnotherSkeleton(Stage<E>& stage) {
    SceneGrid grid = stage.grid(0, "a");
    grid.skeleton().positions("f0", 2).template data<unsigned short>("Intensity", "f0", {1, 2});
    const Anchor::StrongPtr<Sheaf::Skeleton> coarse = grid.current();
    grid.skeleton({2, 2})
        .positions("f0", 3, 10)
        .template data<unsigned short>("Intensity", "f0", {3, 4, 5})
        .within(coarse, "coarse")
        .positions("f0", 3, 20)
        .template data<unsigned short>("Intensity", "f0", {6, 7, 8})
        .template data<unsigned char>("Classification", "f0", {9, 10, 11});
    const Anchor::StrongPtr<Sheaf::Skeleton> fine = grid.current();
    grid.skeleton({3, 3}).within(fine, "fine").positions("f0", 2);
    survey(stage, 0, "b");
}

template <class E>
void chartThatIsNotTheStandardOne(Stage<E>& stage) {
    stage.grid(0, "a").skeleton().chart("local").positions("f0", 2).chart("area").positions("f0", 3);
    survey(stage, 0, "b");
    survey(stage, 1, "a");
}

template <class E>
void fieldsThatLackFragments(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .positions("f1", 3)
        .positions("", 1)
        .template data<unsigned short>("Intensity", "f1", {4, 5, 6})
        .template data<unsigned char>("Classification", "f2", {1, 2})
        .template data<unsigned char>("UserData", "", {9})
        .template emptyField<unsigned short>("PointSourceID");
}

template <class E>
void wrongElementTypes(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .template data<int>("Intensity", "f0", {1, 2})
        .template data<double>("Classification", "f0", {1, 2});
    stage.grid(0, "b").skeleton().template data<Geom::FixedArray<double, 3>>("Positions", "f0", {{}, {}});
    survey(stage, 0, "c");
    stage.grid(1, "d").skeleton().template data<float>("Positions", "f0", {1.5F, 2.5F});
    survey(stage, 2, "e");
}

template <class E>
void creatorsThatGiveNothing(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .scripted("Intensity", "f0", typeid(unsigned short), Sheaf::Extents{2}, {{nullptr}})
        .scripted("Classification", "f0", typeid(unsigned char), std::nullopt, {{nullptr}});
    stage.grid(0, "b").skeleton().scripted("Positions", "f0", typeid(Point), std::nullopt, {{nullptr}});
    stage.grid(1, "c")
        .skeleton()
        .scripted("Positions", "f0", typeid(Point), Sheaf::Extents{2},
                  {{nullptr}, {Sheaf::makeArray(SceneGrid::slope(2))}})
        .scripted("Positions", "f1", typeid(Point), Sheaf::Extents{2},
                  {{Sheaf::makeArray(SceneGrid::slope(2))}, {nullptr}});
    stage.grid(1, "d").skeleton().positions("f0", 0).positions("f1", 2);
}

template <class E>
void extentsOtherThanThoseOfTheArray(Stage<E>& stage) {
    const auto array = [](std::size_t count) {
        return std::vector<Outcome>{{Sheaf::makeArray(SceneGrid::slope(count))}};
    };
    stage.grid(0, "a")
        .skeleton()
        .scripted("Positions", "f0", typeid(Point), std::nullopt, array(3))
        .scripted("Positions", "f1", typeid(Point), Sheaf::Extents{5}, array(3))
        .scripted("Positions", "f2", typeid(Point), Sheaf::Extents{2, 2}, array(3))
        .scripted("Positions", "f3", typeid(Point), Sheaf::Extents{}, array(3));
}

template <class E>
void latticeAmongPoints(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .lattice("f1", {{2, 2, 1}})
        .positions("f2", 3)
        .template data<unsigned short>("Intensity", "f0", {1, 2})
        .template data<unsigned short>("Intensity", "f1", Sheaf::Extents{2, 2, 1}, {1, 2, 3, 4})
        .template data<unsigned short>("Intensity", "f2", {1, 2, 3})
        .template data<unsigned char>("CellType", "f1", Sheaf::Extents{2, 2, 1}, {0, 1, 2, 3});
}

/// Nothing says beforehand that these positions are lattices.
template <class E>
void latticeOnceCreated(Stage<E>& stage) {
    const Sheaf::MultiIndex<3> flat{{2, 2, 1}};
    stage.grid(0, "a")
        .skeleton()
        .scripted("Positions", "f0", typeid(Point), std::nullopt, {{SceneGrid::latticeArray(flat)}})
        .scripted("Positions", "f1", typeid(Point), std::nullopt,
                  {{Sheaf::makeArray(SceneGrid::slope(4))}, {SceneGrid::latticeArray(flat)}})
        .scripted("Positions", "f2", typeid(Point), Sheaf::Extents{4},
                  {{SceneGrid::latticeArray(flat)}, {Sheaf::makeArray(SceneGrid::slope(4))}})
        .template data<unsigned short>("Intensity", "f0", Sheaf::Extents{2, 2, 1}, {1, 2, 3, 4})
        .template data<unsigned short>("Intensity", "f1", Sheaf::Extents{2, 2, 1}, {1, 2, 3, 4})
        .template data<unsigned short>("Intensity", "f2", Sheaf::Extents{2, 2, 1}, {1, 2, 3, 4})
        .template data<unsigned char>("CellType", "f0", Sheaf::Extents{2, 2, 1}, {0, 1, 2, 3});
}

template <class E>
void fieldFilterThatRejects(Stage<E>& stage) {
    survey(stage, 0, "a");
    stage.onField = [](const std::string& name, int) { return name != "Intensity"; };
}

template <class E>
void fieldFilterThatRejectsPositions(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 0, "b");
    survey(stage, 1, "c");
    stage.onField = [](const std::string& name, int) { return name != "Positions"; };
}

template <class E>
void fieldFilterThatAcceptsOnce(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onField = [](const std::string&, int nth) { return nth <= 1; };
}

template <class E>
void fieldFilterThatAcceptsThrice(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onField = [](const std::string&, int nth) { return nth <= 3; };
}

template <class E>
void fieldFilterThatAlternates(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onField = [](const std::string& name, int nth) { return (nth % 2 == 0) == (name == "Intensity"); };
}

template <class E>
void timeFilterThatThrows(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "a", 50);
    stage.onTime = [](double time, int) {
        return time < 1 ? true : throw Failure("a filter of times that fails");
    };
}

template <class E>
void gridFilterThatThrows(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 0, "b", 50);
    stage.onGrid = [](const std::string& name, int) {
        return name == "a" ? true : throw Failure("a filter of grids that fails");
    };
}

template <class E>
void fieldFilterThatThrows(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 0, "b", 50);
    stage.onField = [](const std::string&, int nth) {
        return nth < 4 ? true : throw Failure("a filter of fields that fails");
    };
}

template <class E>
void reporterThatRefusesAll(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onProgress = [](int) { return false; };
}

template <class E>
void reporterThatRefusesSome(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b", 20);
    stage.onProgress = [](int nth) { return nth != 1 && nth != 4; };
}

template <class E>
void reporterThatThrows(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onProgress = [](int nth) {
        return nth < 2 ? true : throw Failure("a reporter that stops the work");
    };
}

template <class E>
void reporterThatGoesAndComes(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    survey(stage, 2, "c");
    stage.onProgress = [&stage](int nth) {
        if (nth == 2)
            stage.exporter.Progress.reset();
        return true;
    };
    stage.onGrid = [&stage](const std::string& name, int) {
        if (name == "c")
            stage.exporter.Progress = stage.reporter;
        return true;
    };
}

template <class E>
void positionsThatThrow(Stage<E>& stage) {
    survey(stage, 0, "a");
    stage.grid(0, "b").skeleton().positions("f0", 2).scripted("Positions", "f1", typeid(Point),
                                                              Sheaf::Extents{2}, {{nullptr, true}});
    survey(stage, 1, "c");
}

template <class E>
void positionsThatThrowLater(Stage<E>& stage) {
    stage.grid(0, "a").skeleton().positions("f0", 2).scripted(
        "Positions", "f1", typeid(Point), Sheaf::Extents{2},
        {{Sheaf::makeArray(SceneGrid::slope(2))}, {nullptr, true}});
}

template <class E>
void intensitiesThatThrow(Stage<E>& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .positions("f1", 2, 20)
        .template data<unsigned short>("Intensity", "f0", {1, 2})
        .scripted("Intensity", "f1", typeid(unsigned short), Sheaf::Extents{2}, {{nullptr, true}});
}

/// A host's bundle library may load a slice when it is accessed, and not before.
template <class E>
void gridsThatAccessBrings(Stage<E>& stage) {
    stage.bundle->makeSlice(0);
    survey(stage, 1, "a");
    survey(stage, 1, "b");
    stage.recorder.onAccess = [&stage](double time) {
        if (time == 0)
            survey(stage, 0, "a", 30);
        else
            stage.bundle->slices().at(time).lock()->removeGrid("b");
    };
}

template <class E>
void filtersThatRemove(Stage<E>& stage) {
    for (const double time : {0.0, 1.0, 2.0}) {
        for (const char* const name : {"a", "b", "c"})
            survey(stage, time, name);
    }
    stage.onTime = [&stage](double time, int) {
        if (time == 1)
            stage.bundle->removeSlice(2);
        return true;
    };
    stage.onGrid = [&stage](const std::string& name, int) {
        const auto slice = stage.bundle->slices().begin()->second.lock();
        if (name == "a")
            slice->removeGrid("b");
        return true;
    };
}

template <class E>
void filtersThatAdd(Stage<E>& stage) {
    survey(stage, 0, "a");
    stage.onTime = [&stage](double time, int) {
        if (time < 2)
            survey(stage, time + 1, "a", 20 * time);
        return true;
    };
    stage.onGrid = [&stage](const std::string& name, int nth) {
        if (name == "a")
            survey(stage, nth - 1, "b", 7);
        return true;
    };
}

template <class E>
void hostThatLetsGoOfTheBundle(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b");
    stage.onGrid = [&stage](const std::string&, int) {
        stage.exporter.bundleptr.reset();
        return true;
    };
}

template <class E>
void outputThatMovesAtEachGrid(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 0, "b", 9);
    survey(stage, 1, "c", 18);
    stage.onGrid = [&stage](const std::string& name, int) {
        stage.exporter.OutputPath = stage.path("out-" + name + ".ext");
        return true;
    };
}

template <class E>
void outputThatMovesAtEachField(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b", 9);
    stage.onField = [&stage](const std::string& name, int nth) {
        stage.exporter.OutputPath = stage.path("out-" + name + std::to_string(nth) + ".ext");
        return true;
    };
}

template <class E>
void linesThatAreNotFlushed(Stage<E>& stage) {
    survey(stage, 0, "a");
    survey(stage, 1, "b", 9);
    stage.exporter.setFlushLines(false);
}

#define TIDEWATCH_SCENARIO(NAME)                                                                             \
    Scenario<E> {                                                                                            \
#NAME, Common::NAME < E>                                                                             \
    }

template <class E>
std::vector<Scenario<E>> scenarios() {
    return {TIDEWATCH_SCENARIO(oneGrid),
            TIDEWATCH_SCENARIO(noReporter),
            TIDEWATCH_SCENARIO(emptyBundle),
            TIDEWATCH_SCENARIO(noBundle),
            TIDEWATCH_SCENARIO(expiredBundle),
            TIDEWATCH_SCENARIO(severalSlicesAndGrids),
            TIDEWATCH_SCENARIO(goneSlicesAndGrids),
            TIDEWATCH_SCENARIO(gridsWithoutWhatIsNeeded),
            TIDEWATCH_SCENARIO(manySkeletons),
            TIDEWATCH_SCENARIO(highestSkeletonIsMarked),
            TIDEWATCH_SCENARIO(severalCharts),
            TIDEWATCH_SCENARIO(fieldsOnAnotherSkeleton),
            TIDEWATCH_SCENARIO(chartThatIsNotTheStandardOne),
            TIDEWATCH_SCENARIO(fieldsThatLackFragments),
            TIDEWATCH_SCENARIO(wrongElementTypes),
            TIDEWATCH_SCENARIO(creatorsThatGiveNothing),
            TIDEWATCH_SCENARIO(extentsOtherThanThoseOfTheArray),
            TIDEWATCH_SCENARIO(latticeAmongPoints),
            TIDEWATCH_SCENARIO(latticeOnceCreated),
            TIDEWATCH_SCENARIO(fieldFilterThatRejects),
            TIDEWATCH_SCENARIO(fieldFilterThatRejectsPositions),
            TIDEWATCH_SCENARIO(fieldFilterThatAcceptsOnce),
            TIDEWATCH_SCENARIO(fieldFilterThatAcceptsThrice),
            TIDEWATCH_SCENARIO(fieldFilterThatAlternates),
            TIDEWATCH_SCENARIO(timeFilterThatThrows),
            TIDEWATCH_SCENARIO(gridFilterThatThrows),
            TIDEWATCH_SCENARIO(fieldFilterThatThrows),
            TIDEWATCH_SCENARIO(reporterThatRefusesAll),
            TIDEWATCH_SCENARIO(reporterThatRefusesSome),
            TIDEWATCH_SCENARIO(reporterThatThrows),
            TIDEWATCH_SCENARIO(reporterThatGoesAndComes),
            TIDEWATCH_SCENARIO(positionsThatThrow),
            TIDEWATCH_SCENARIO(positionsThatThrowLater),
            TIDEWATCH_SCENARIO(intensitiesThatThrow),
            TIDEWATCH_SCENARIO(gridsThatAccessBrings),
            TIDEWATCH_SCENARIO(filtersThatRemove),
            TIDEWATCH_SCENARIO(filtersThatAdd),
            TIDEWATCH_SCENARIO(hostThatLetsGoOfTheBundle),
            TIDEWATCH_SCENARIO(outputThatMovesAtEachGrid),
            TIDEWATCH_SCENARIO(outputThatMovesAtEachField),
            TIDEWATCH_SCENARIO(linesThatAreNotFlushed)};
}

#undef TIDEWATCH_SCENARIO

} // namespace Record::Common
