// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Inputs.hpp"
#include "python/module/arrayOf.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

/// What stands behind the classes of Python. All of it is used with the interpreter's lock held.
namespace Tidewatch::Python {

/// A bundle with what is known of its files; shared by everything that Python has of it.
struct BundleState {
    explicit BundleState(Inputs from) : inputs(std::move(from)) {}

    [[nodiscard]] Sheaf::Bundle& bundle() const { return *inputs.bundle(); }

    Inputs inputs;
    /// The calls that work on the bundle without the lock; it must not change meanwhile.
    int users = 0;
    /// For grids that were made like others: these.
    std::map<const Sheaf::Grid*, Anchor::StrongPtr<Sheaf::Grid>> models = {};
};

using SharedState = std::shared_ptr<BundleState>;

/// Keeps a bundle from being changed.
class InUse {
public:
    explicit InUse(SharedState state) : state_(std::move(state)) { ++state_->users; }
    ~InUse() { --state_->users; }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

private:
    SharedState state_;
};

/// Throws RuntimeError while the bundle is in use.
void requireUnused(const BundleState& state);

class BundleHandle {
public:
    explicit BundleHandle(Inputs inputs) : state_(std::make_shared<BundleState>(std::move(inputs))) {}
    explicit BundleHandle(SharedState state) : state_(std::move(state)) {}

    /// Throws ValueError after close().
    [[nodiscard]] const SharedState& state() const;
    void close() noexcept { state_.reset(); }
    [[nodiscard]] bool isClosed() const noexcept { return state_ == nullptr; }

private:
    SharedState state_;
};

struct SliceHandle {
    SharedState state;
    Anchor::StrongPtr<Sheaf::Slice> slice;
};

struct GridHandle {
    SharedState state;
    double time;
    Anchor::StrongPtr<Sheaf::Grid> grid;

    /// "survey.laz: grid "survey" at time 0".
    [[nodiscard]] std::string text() const;
};

/// The fields of one skeleton in the grid's default chart.
class FieldsHandle {
public:
    /// Of the vertices that exporters use by default.
    explicit FieldsHandle(GridHandle grid);
    FieldsHandle(GridHandle grid, Anchor::StrongPtr<Sheaf::Skeleton> skeleton);

    [[nodiscard]] const GridHandle& grid() const noexcept { return grid_; }
    /// Null where a grid has none yet.
    [[nodiscard]] const Anchor::StrongPtr<Sheaf::Skeleton>& skeleton() const noexcept { return skeleton_; }

    [[nodiscard]] std::vector<std::string> names() const;
    /// Throws KeyError.
    [[nodiscard]] Anchor::StrongPtr<Sheaf::Field> field(const std::string& name) const;
    [[nodiscard]] bool contains(const std::string& name) const;

    /// All of a field. Throws KeyError.
    [[nodiscard]] py::array get(const std::string& name) const;
    /// Makes or replaces a field. Throws TypeError, ValueError, and RuntimeError while the bundle is in use.
    void set(const std::string& name, const py::object& values, const std::string& elementType);
    void remove(const std::string& name);

    /// The fragments of the positions, or else of the first field.
    [[nodiscard]] std::vector<Anchor::StrongPtr<Sheaf::FragmentID>> fragments() const;
    [[nodiscard]] py::array getOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                  const std::string& name) const;
    void setOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const std::string& name,
               const py::object& values, const std::string& elementType);

    /// The number of positions.
    [[nodiscard]] std::uint64_t points() const;

    /// The creator of the positions of a fragment if that is a lattice in memory, else null.
    [[nodiscard]] Creator latticeOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) const;

private:
    struct Piece {
        Anchor::StrongPtr<Sheaf::FragmentID> fragment;
        Creator data;
    };

    [[nodiscard]] Anchor::StrongPtr<Sheaf::Representation> representation() const;
    Sheaf::Representation& madeRepresentation();
    void countChosen() const;
    [[nodiscard]] std::vector<Piece> piecesOf(const std::string& name) const;
    /// The pieces that decide about shapes: those of a field beside the one of this name; empty for nothing.
    [[nodiscard]] std::vector<Piece> layoutBeside(const std::string& name) const;
    void replace(const std::string& name, const std::type_info& elementType,
                 const std::vector<Piece>& pieces);
    [[nodiscard]] std::string textOf(const std::string& name) const { return grid_.text() + ": " + name; }

    GridHandle grid_;
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton_;
};

struct FragmentHandle {
    FieldsHandle fields;
    Anchor::StrongPtr<Sheaf::FragmentID> fragment;
};

} // namespace Tidewatch::Python
