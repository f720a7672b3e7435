// SPDX-License-Identifier: Apache-2.0
#include "library/points/mergeGrids.hpp"

#include "anchor/Error.hpp"
#include "library/points/GridBuilder.hpp"
#include "library/points/ZeroCreator.hpp"
#include "library/points/mergedStatement.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Keys = std::vector<Sheaf::Skeleton::Key>;

bool isSame(const std::optional<Sheaf::FieldEncoding>& a, const std::optional<Sheaf::FieldEncoding>& b) {
    if (!a || !b)
        return !a && !b;
    return a->name == b->name && *a->type == *b->type && a->scale == b->scale && a->offset == b->offset &&
           a->noData == b->noData;
}

/// The skeletons of vertices that have positions in the default chart.
Keys verticesOf(const Sheaf::Grid& grid) {
    const auto chart = grid.findCartesianChart({});
    Keys keys;
    grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        const auto representation = skeleton.representations()(chart);
        if (skeleton.dimension() == 0 && representation && representation->Positions())
            keys.push_back(skeleton.key());
        return true;
    });
    return keys;
}

/// The file, and its grid where that has another name.
std::string gridIn(const MergePart& part) {
    return std::filesystem::path(part.file).stem() == part.grid->name()
               ? part.file
               : fmt::format("{} (grid \"{}\")", part.file, part.grid->name());
}

/// Merges the grids of one time.
class Merger {
public:
    Merger(const std::vector<MergePart>& parts, std::size_t inputs, Sheaf::Grid& to,
           std::vector<std::string>& notes)
        : parts_(parts),
          numberDigits_(std::max<std::size_t>(4, std::to_string(inputs - 1).size())),
          to_(to),
          notes_(notes) {}

    void run();

private:
    /// One part's points.
    struct Piece {
        const MergePart* part = nullptr;
        Anchor::StrongPtr<Sheaf::Representation> points;
    };

    void mergeVertices(const std::vector<Piece>& pieces, Sheaf::Representation& to);
    [[nodiscard]] Anchor::StrongPtr<Sheaf::Field>
    makeField(const std::vector<Piece>& pieces, const std::string& name, Sheaf::Representation& to) const;
    [[nodiscard]] std::string fragmentName(const MergePart& part,
                                           const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) const;
    static void checkPositions(const Piece& piece);

    const std::vector<MergePart>& parts_;
    std::size_t numberDigits_;
    Sheaf::Grid& to_;
    std::vector<std::string>& notes_;
};

void Merger::run() {
    to_.setStatement(mergedStatement(parts_, notes_));
    mergeSystems(parts_, to_, notes_);
    const auto chart = to_.declareCartesianChart(std::string(Sheaf::Grid::standardChart));

    const Keys keys = verticesOf(*parts_.front().grid);
    const bool sameKeys = std::all_of(parts_.begin(), parts_.end(),
                                      [&](const MergePart& part) { return verticesOf(*part.grid) == keys; });
    const auto pieceOf = [](const MergePart& part, const Sheaf::Skeleton& skeleton) {
        Piece piece{&part, skeleton.representations()(part.grid->findCartesianChart({}))};
        checkPositions(piece);
        return piece;
    };
    if (sameKeys && !keys.empty()) {
        for (const auto& key : keys) {
            std::vector<Piece> pieces;
            for (const MergePart& part : parts_)
                pieces.push_back(pieceOf(part, *part.grid->skeletons().find(key)));
            mergeVertices(pieces, *to_.skeletons().make(key)->representations().make(chart));
        }
        return;
    }
    std::vector<Piece> pieces;
    std::vector<std::string> refined;
    for (const MergePart& part : parts_) {
        const auto skeleton = part.grid->skeletons().findVertices(-1);
        if (!skeleton)
            throw Anchor::ModelError(
                fmt::format("{}: grid \"{}\" has no vertices to merge", part.file, part.grid->name()));
        if (verticesOf(*part.grid).size() > 1)
            refined.push_back(gridIn(part));
        pieces.push_back(pieceOf(part, *skeleton));
    }
    if (!refined.empty())
        notes_.push_back(fmt::format("only the highest refinement of {} is merged", listed(refined)));
    mergeVertices(pieces, *to_.skeletons().make({})->representations().make(chart));
}

void Merger::checkPositions(const Piece& piece) {
    const auto where = [&] {
        return fmt::format("{}: grid \"{}\"", piece.part->file, piece.part->grid->name());
    };
    if (!piece.points || !piece.points->Positions())
        throw Anchor::ModelError(where() + " has no positions to merge");
    piece.points->Positions()->forEachFragment([&](const auto&, const auto& data) {
        if (Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data->available()))
            throw Anchor::ModelError(where() +
                                     " is a lattice, and --merge joins points; --cells-as-points makes "
                                     "points of its cells");
        return true;
    });
}

Anchor::StrongPtr<Sheaf::Field> Merger::makeField(const std::vector<Piece>& pieces, const std::string& name,
                                                  Sheaf::Representation& to) const {
    const Piece* first = nullptr;
    Anchor::StrongPtr<Sheaf::Field> model;
    bool hasOneEncoding = true;
    for (const Piece& piece : pieces) {
        const auto field = piece.points->findField(name.c_str());
        if (!field)
            continue;
        if (!model) {
            first = &piece;
            model = field;
        } else if (field->getElementType() != model->getElementType()) {
            throw Anchor::ModelError(
                fmt::format("{} holds {} values in {} and {} in {}; --field leaves fields out", name,
                            Sheaf::elementTypeName(model->getElementType()), first->part->file,
                            Sheaf::elementTypeName(field->getElementType()), piece.part->file));
        } else if (!isSame(field->encoding(), model->encoding())) {
            hasOneEncoding = false;
        }
    }
    auto made = to.makeField(name, model->getElementType());
    if (hasOneEncoding && model->encoding())
        made->setEncoding(*model->encoding());
    return made;
}

void Merger::mergeVertices(const std::vector<Piece>& pieces, Sheaf::Representation& to) {
    std::set<std::string> names;
    for (const Piece& piece : pieces) {
        piece.points->forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
            names.insert(id.name());
            return true;
        });
    }
    std::map<std::vector<std::string>, std::vector<std::string>> zeros; // from files to fields
    for (const std::string& name : names) {
        const auto field = makeField(pieces, name, to);
        std::vector<std::string> without;
        for (const Piece& piece : pieces) {
            const auto& its = piece.points->findField(name.c_str());
            if (!its)
                without.push_back(gridIn(*piece.part));
            const auto& from = its ? its : piece.points->Positions();
            from->forEachFragment([&](const auto& fragment, const auto& data) {
                const auto id = to_.makeFragment(fragmentName(*piece.part, fragment));
                if (its)
                    field->addFragment(id, data);
                else
                    field->addFragment(id, Anchor::makeStrong<ZeroCreator>(field->getElementType(), data));
                return true;
            });
        }
        if (!without.empty())
            zeros[without].push_back(name);
    }
    for (const auto& [files, fields] : zeros)
        notes_.push_back(fmt::format("{} {} zeros in the points of {}, which {} no such field{}",
                                     listed(fields), fields.size() == 1 ? "is" : "are", listed(files),
                                     files.size() == 1 ? "has" : "have", fields.size() == 1 ? "" : "s"));
}

std::string Merger::fragmentName(const MergePart& part,
                                 const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) const {
    return fmt::format("{:0{}}-{}{}{}", part.input, numberDigits_, part.grid->name(), fragment ? "-" : "",
                       fragment ? fragment->name() : std::string());
}

} // namespace

MergedGrids mergeGrids(std::span<const MergeInput> inputs, const MergeOptions& options) {
    std::map<double, std::vector<MergePart>> parts;
    std::vector<std::string> files;
    const Selection selection(options.selected);
    for (std::size_t number = 0; number < inputs.size(); ++number) {
        bool isUsed = false;
        selection.forEachGrid(
            *inputs[number].bundle, [&](double time, const std::string& name, const Sheaf::Grid&) {
                const auto slice = inputs[number].bundle->slices().at(time).lock();
                parts[time].push_back({inputs[number].file, slice->grids().at(name).lock(), number});
                isUsed = true;
            });
        if (isUsed)
            files.push_back(inputs[number].file);
    }
    std::vector<Anchor::StrongPtr<Sheaf::Bundle>> bundles;
    for (const MergeInput& input : inputs)
        bundles.push_back(input.bundle);
    MergedGrids merged{Anchor::makeStrong<Sheaf::Bundle>(), unmatchedFilters(options.selected, bundles)};
    if (parts.empty())
        throw Anchor::ModelError("nothing is left to merge" +
                                 (merged.notes.empty() ? std::string() : ": " + joined(merged.notes, "; ")));
    merged.origin = listed(files);
    for (const auto& [time, ofTime] : parts) {
        const auto grid = merged.bundle->makeSlice(time)->makeGrid(options.gridName, merged.origin);
        Merger(ofTime, inputs.size(), *grid, merged.notes).run();
    }
    return merged;
}

} // namespace Tidewatch
