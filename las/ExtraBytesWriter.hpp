// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "anchor/StrongPtr.hpp"
#include "las/LasPlan.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <utility>

namespace ExportLib {

/// Writes one number of the extra bytes to records, fragment by fragment: a field's values as its encoding
/// stores them. Integers are rounded to the nearest, halves away from zero, and clamped to the range of their
/// type; NaN becomes the encoding's "no data", or 0.
class ExtraBytesWriter {
public:
    explicit ExtraBytesWriter(LasPlan::ExtraBytes description);

    /// How values were changed.
    struct Changes {
        std::uint64_t rounded = 0;
        /// The greatest change by rounding, in the unit of the values.
        double most = 0;
        std::uint64_t clamped = 0;
        /// NaN values without a "no data".
        std::uint64_t lost = 0;

        void add(const Changes& other) noexcept {
            rounded += other.rounded;
            most = std::max(most, other.most);
            clamped += other.clamped;
            lost += other.lost;
        }
    };

    [[nodiscard]] const LasPlan::ExtraBytes& description() const noexcept { return description_; }

    /// Takes the array of a fragment, and holds it; null or an array of another kind counts as empty.
    void take(const Anchor::StrongPtr<Anchor::Cacheable>& data);

    /// Releases the array.
    void clear() { take(nullptr); }

    /// The number of values.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }

    /// Writes a value, which must exist, to its place in the extra bytes of a record, and notes how it was changed.
    void put(std::size_t value, std::uint8_t* extraBytes, Changes& changes) const {
        const std::byte* const from = first_ + value * stride_;
        if (isCopied_)
            copy(from, extraBytes + description_.start);
        else
            store_(*this, load_(from), extraBytes + description_.start, changes);
    }

private:
    void copy(const std::byte* from, std::uint8_t* to) const noexcept;
    template <class Raw>
    static void store(const ExtraBytesWriter& writer, double value, std::uint8_t* to,
                      Changes& changes) noexcept;
    using Store = void (*)(const ExtraBytesWriter& writer, double value, std::uint8_t* to,
                           Changes& changes) noexcept;
    template <std::size_t... type>
    static Store storeOf(const std::type_info& raw, std::index_sequence<type...>);

    LasPlan::ExtraBytes description_;
    double scale_;
    double offset_;
    Store store_;
    Anchor::StrongPtr<Anchor::Cacheable> data_;
    const std::byte* first_ = nullptr;
    std::size_t stride_ = 0;
    std::size_t size_ = 0;
    double (*load_)(const std::byte* from) noexcept = nullptr;
    bool isCopied_ = false;
};

} // namespace ExportLib
