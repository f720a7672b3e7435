// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cache.hpp"
#include "anchor/StrongPtr.hpp"
#include "sheaf/CreativeArrayBase.hpp"
#include "sheaf/TypedArray.hpp"

#include <cstddef>
#include <vector>

namespace ExportLib {

/// The arrays of one kind that become one, in the order in which they are added.
///
/// Held until join(): only then is their number known, and a vector that grows from fragment to fragment would take up
/// to twice the memory of the elements.
template <class T>
class GatheredArrays {
public:
    /// Has an array made. Not taken, as by captureArray(): null creators, data that is not there, and arrays of another
    /// element type. Throws what the creator throws.
    void add(const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator) {
        if (!creator)
            return;
        auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(creator->create(false));
        if (!array)
            return;
        size_ += array->chunk()->base_vector().size();
        arrays_.push_back(std::move(array));
    }

    /// All elements; each array is released as soon as it has been copied.
    [[nodiscard]] std::vector<T> join() {
        std::vector<T> all;
        all.reserve(size_);
        for (auto& array : arrays_) {
            const std::vector<T>& elements = array->chunk()->base_vector();
            all.insert(all.end(), elements.begin(), elements.end());
            array.reset();
            // What was held beyond the cache's limit can go now.
            Anchor::Cache::MemCache().makeRoom(0);
        }
        arrays_.clear();
        return all;
    }

private:
    std::vector<Anchor::StrongPtr<Sheaf::TypedArray<T>>> arrays_;
    std::size_t size_ = 0;
};

} // namespace ExportLib
