// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "record/Dice.hpp"
#include "record/Stage.hpp"
#include "record/expectation.hpp"
#include "sheaf/ElementTypes.hpp"

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Record {

/// A field that random bundles have, with names of element types (Sheaf::visitElementName); the first is the
/// usual one.
struct FieldKind {
    std::string name;
    std::vector<std::string> types;
    unsigned chance;
};

/// What differs from exporter to exporter in random runs.
template <class Exporter>
struct RandomRuns {
    std::vector<FieldKind> fields;
    unsigned latticeChance;
    std::function<void(Stage<Exporter>&)> prepare;
    /// Gives one setting another value.
    std::function<void(Stage<Exporter>&, Dice&)> changeSetting;
};

template <class T>
std::vector<T> randomElements(Dice& dice, std::size_t count) {
    using Component = typename Sheaf::ElementTraits<T>::Component;
    std::vector<T> elements(count);
    for (T& element : elements) {
        std::array<Component, Sheaf::ElementTraits<T>::componentCount> components{};
        for (Component& component : components) {
            if constexpr (std::is_floating_point_v<Component>)
                component = static_cast<Component>(dice.below(4000)) / 8 - 100;
            else
                component = static_cast<Component>(dice.below(100));
        }
        if constexpr (components.size() == 1)
            element = components[0];
        else
            std::memcpy(static_cast<void*>(&element), components.data(), sizeof element);
    }
    return elements;
}

/// Fills a stage with a bundle, filters, a reporter and changes of settings.
template <class Exporter>
class RandomScene {
public:
    RandomScene(Stage<Exporter>& stage, const RandomRuns<Exporter>& runs, std::uint64_t seed)
        : stage_(stage),
          runs_(runs),
          dice_(seed) {}

    void arrange() {
        runs_.prepare(stage_);
        for (std::uint64_t i = dice_.below(5); i > 0; --i)
            runs_.changeSetting(stage_, dice_);
        for (const double time : {-0.5, 0.0, 1.0, 20.25}) {
            if (dice_.percent(55))
                addSlice(time);
        }
        setFilters();
        setReporter();
        for (std::uint64_t i = dice_.below(4); i > 0; --i) {
            stage_.recorder.actions[1 + dice_.below(50)] = [this, seed = dice_.next()] {
                Dice dice(seed);
                runs_.changeSetting(stage_, dice);
            };
        }
    }

private:
    struct Piece {
        std::string name;
        std::size_t count;
        bool isLattice;
        Sheaf::MultiIndex<3> extents;
    };

    void addSlice(double time) {
        const auto slice = stage_.bundle->makeSlice(time);
        for (const char* const name : {"a", "b", "c"}) {
            if (!dice_.percent(55))
                continue;
            addGrid(time, name);
            if (dice_.percent(6))
                slice->removeGrid(name);
        }
        if (dice_.percent(6))
            stage_.bundle->removeSlice(time);
    }

    void addGrid(double time, const std::string& name) {
        SceneGrid grid = stage_.grid(time, name);
        std::vector<Piece> pieces;
        for (const char* const piece : {"", "f0", "f1", "f2"}) {
            if (!dice_.percent(50))
                continue;
            const Sheaf::MultiIndex<3> extents{{dice_.below(4), dice_.below(4), dice_.percent(85) ? 1U : 2U}};
            const bool isLattice = dice_.percent(runs_.latticeChance);
            pieces.push_back({piece,
                              isLattice ? static_cast<std::size_t>(extents[0] * extents[1] * extents[2])
                                        : static_cast<std::size_t>(dice_.below(7)),
                              isLattice, extents});
            if (*piece != '\0' && dice_.percent(30)) {
                // Drawn in braces: those are evaluated in order, arguments in any.
                const std::array<std::uint64_t, 4> counts{dice_.below(2), dice_.below(3), dice_.below(3),
                                                          dice_.below(2)};
                grid.overlaps(piece, {{counts[0], counts[1], 0}}, {{counts[2], counts[3], 0}});
            }
        }
        const std::vector<std::vector<int>> refinements{{}, {0, 0}, {1, 1, 1}, {2, 2}, {1, 2, 1}, {2, 2, 1}};
        for (const int dimension : {0, 1}) {
            for (const auto& refinement : refinements) {
                if (!dice_.percent(dimension == 0 ? 35 : 8))
                    continue;
                grid.skeleton(refinement, dice_.percent(8) ? 3 : 0, dimension);
                addCharts(grid, pieces);
            }
        }
    }

    void addCharts(SceneGrid& grid, const std::vector<Piece>& pieces) {
        for (const char* const chart : {"StandardCartesianChart3D", "local", "zone"}) {
            if (!dice_.percent(std::string(chart) == "StandardCartesianChart3D" ? 90 : 15))
                continue;
            grid.chart(chart);
            for (const FieldKind& kind : runs_.fields) {
                if (dice_.percent(kind.chance))
                    addField(grid, kind, pieces);
            }
        }
    }

    void addField(SceneGrid& grid, const FieldKind& kind, const std::vector<Piece>& pieces) {
        const std::string& type =
            dice_.percent(85) ? kind.types.front() : kind.types[dice_.below(kind.types.size())];
        for (const Piece& piece : pieces) {
            if (!dice_.percent(88))
                continue;
            const std::string& own = dice_.percent(95) ? type : kind.types[dice_.below(kind.types.size())];
            const bool isKnown = Sheaf::visitElementName(
                own, [&](auto tag) { addFragment<typename decltype(tag)::type>(grid, kind.name, piece); });
            if (!isKnown)
                throw std::logic_error("no element type is named " + own);
        }
        Sheaf::visitElementName(
            type, [&](auto tag) { grid.field(kind.name, typeid(typename decltype(tag)::type)); });
    }

    template <class T>
    void addFragment(SceneGrid& grid, const std::string& name, const Piece& piece) {
        const std::size_t count = dice_.percent(92) ? piece.count : dice_.below(6);
        Anchor::StrongPtr<Sheaf::MemBase> array;
        if (piece.isLattice && name == "Positions")
            array = SceneGrid::latticeArray(piece.extents);
        else if (piece.isLattice && count == piece.count)
            array = Sheaf::makeArray(Sheaf::Extents(piece.extents), randomElements<T>(dice_, count));
        else if (count % 2 == 0 && dice_.percent(15))
            array = Sheaf::makeArray(Sheaf::Extents{2, count / 2}, randomElements<T>(dice_, count));
        else
            array = Sheaf::makeArray(randomElements<T>(dice_, count));
        std::optional<Sheaf::Extents> extents = array->extents();
        if (dice_.percent(5))
            extents.reset();
        else if (dice_.percent(4))
            extents = Sheaf::Extents{dice_.below(8), 1};
        std::vector<Outcome> outcomes{{array}};
        if (dice_.percent(4))
            outcomes.push_back({nullptr});
        if (dice_.percent(4))
            outcomes.insert(outcomes.begin(), {Sheaf::makeArray(randomElements<T>(dice_, count))});
        if (dice_.percent(1))
            outcomes.push_back({nullptr, true});
        if (dice_.percent(1))
            outcomes.front() = {nullptr, true};
        grid.scripted(name, piece.name, typeid(T), extents, std::move(outcomes));
    }

    /// One way to answer; `salt` makes two of one kind differ.
    static bool answer(std::uint64_t way, std::uint64_t salt, std::uint64_t what, int nth) {
        switch (way) {
        case 0:
            return (what + salt) % 4 != 0;
        case 1:
            return nth % 2 != 0;
        case 2:
            return nth <= static_cast<int>(1 + salt % 5);
        case 3:
            return (what + salt + static_cast<std::uint64_t>(nth)) % 5 != 0;
        case 4:
            return nth != static_cast<int>(2 + salt % 9) ? true : throw Failure("an answer that fails");
        default:
            return true;
        }
    }

    void setFilters() {
        stage_.onTime = [way = dice_.below(16), salt = dice_.next()](double time, int nth) {
            return answer(way, salt, hashOf(number(time)), nth);
        };
        stage_.onGrid = [way = dice_.below(16), salt = dice_.next()](const std::string& name, int nth) {
            return answer(way, salt, hashOf(name), nth);
        };
        stage_.onField = [way = dice_.below(10), salt = dice_.next()](const std::string& name, int nth) {
            return answer(way, salt, hashOf(name), nth);
        };
    }

    void setReporter() {
        if (dice_.percent(15))
            stage_.exporter.Progress.reset();
        stage_.onProgress = [way = dice_.below(10), salt = dice_.next()](int nth) {
            return answer(way, salt, 0, nth);
        };
    }

    Stage<Exporter>& stage_;
    const RandomRuns<Exporter>& runs_;
    Dice dice_;
};

/// Runs random scenes, and compares a line for each: its number, the hash of its record and the record's
/// length.
template <class Exporter>
void expectRandomRunsRecorded(const std::string& name, const RandomRuns<Exporter>& runs) {
    constexpr int count = 200;
    std::vector<std::string> hashes;
    for (int i = 0; i < count; ++i) {
        Stage<Exporter> stage;
        RandomScene<Exporter> scene(stage, runs, static_cast<std::uint64_t>(i));
        scene.arrange();
        stage.run();
        hashes.push_back(std::to_string(i) + " " + hexadecimal(hashOf(stage.recorder.text())) + " " +
                         std::to_string(stage.recorder.lines().size()) + " lines");
        dump(name + "/" + std::to_string(i), stage.recorder.lines());
    }
    SCOPED_TRACE(
        "with TIDEWATCH_RECORD_DUMP=<folder> in the environment, the lists behind the hashes are written");
    expectRecorded(name, hashes);
}

} // namespace Record
