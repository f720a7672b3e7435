// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/BaseSpace.hpp"
#include "sheaf/RepresentationMap.hpp"

#include <compare>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace Sheaf {

/// The elements of one dimension of a grid (0: its vertices) at one refinement, with their fields.
class TIDEWATCH_API Skeleton final : public BaseSpace {
public:
    /// Identifies a skeleton within its grid, and orders skeletons.
    struct Key {
        int dimension = 0;
        std::vector<std::int32_t> refinement;
        friend auto operator<=>(const Key&, const Key&) = default;
    };

    explicit Skeleton(Key key, std::int32_t exclusionMark = 0)
        : key_(std::move(key)),
          exclusionMark_(exclusionMark) {}
    ~Skeleton() override;

    [[nodiscard]] const Key& key() const noexcept { return key_; }
    [[nodiscard]] int dimension() const noexcept { return key_.dimension; }

    /// The refinement per direction; empty if the grid is not refined.
    [[nodiscard]] const std::vector<std::int32_t>& refinement() const noexcept { return key_.refinement; }

    /// Whether the refinement is the same in every direction.
    [[nodiscard]] bool isHomogeneous() const noexcept;

    /// The level by which exporters select: 0 without refinement entries; the common value of equal entries;
    /// otherwise the negated index (from 0) of the first entry that differs from entry 0.
    [[nodiscard]] std::int32_t refinementLevel() const noexcept;

    /// If not 0, this skeleton is not to be exported.
    [[nodiscard]] std::int32_t exclusionMark() const noexcept { return exclusionMark_; }

    [[nodiscard]] RepresentationMap& representations() noexcept { return representations_; }
    [[nodiscard]] const RepresentationMap& representations() const noexcept { return representations_; }

    /// Calls the callable once per field, in the order of representations and names; false ends the
    /// traversal.
    void iterate_fields(const std::function<bool(const FieldID&, const Field&)>& visit) const;

private:
    Key key_;
    std::int32_t exclusionMark_;
    RepresentationMap representations_;
};

} // namespace Sheaf
