// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace Tidewatch {

/// A set of element indices below a size, one bit each.
class ElementSet {
public:
    /// Contains all indices below `size`.
    explicit ElementSet(std::size_t size);

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] std::size_t count() const noexcept;

    /// Removes the indices for which `admits` is false; it is called for members only.
    template <class Admits>
    void narrow(Admits&& admits) {
        for (std::size_t word = 0; word < words_.size(); ++word) {
            std::uint64_t kept = words_[word];
            for (std::uint64_t left = kept; left != 0; left &= left - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(left));
                if (!admits(word * wordBits + bit))
                    kept &= ~(std::uint64_t{1} << bit);
            }
            words_[word] = kept;
        }
    }

    /// Visits the members in ascending order.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (std::size_t word = 0; word < words_.size(); ++word) {
            for (std::uint64_t left = words_[word]; left != 0; left &= left - 1)
                visit(word * wordBits + static_cast<std::size_t>(std::countr_zero(left)));
        }
    }

private:
    static constexpr std::size_t wordBits = 64;

    std::vector<std::uint64_t> words_;
    std::size_t size_;
};

/// Which elements of a fragment are chosen: determined on demand by tests that read arrays, and stored, one
/// bit per element. Thread-safe.
class FragmentMask final : public Anchor::ReferenceBase<FragmentMask> {
public:
    /// Removes elements from the set. May throw Anchor::Error.
    using Test = std::function<void(ElementSet& chosen)>;

    FragmentMask(std::uint64_t elements, std::vector<Test> tests);
    ~FragmentMask() override;

    /// The number of elements of the whole fragment.
    [[nodiscard]] std::uint64_t elements() const noexcept { return elements_; }

    /// The chosen elements. Throws what the tests throw; the next call then runs them again.
    [[nodiscard]] const ElementSet& chosen() const;

    /// How many are chosen, if that has been determined.
    [[nodiscard]] std::optional<std::uint64_t> knownCount() const;

private:
    std::uint64_t elements_;
    std::vector<Test> tests_;
    mutable std::mutex determining_;
    mutable std::mutex mutex_; // of what follows
    mutable std::optional<ElementSet> chosen_;
    mutable std::uint64_t count_ = 0;
};

} // namespace Tidewatch
