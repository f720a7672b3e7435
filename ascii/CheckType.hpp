// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "convlib/WrittenFile.hpp"
#include "geom/MultiRange.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/Representation.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// The element types that have a writer, in the order in which they are tried: ROW(TYPE) for each. A new one
/// is a row here and, unless it is a number, its own elementText.
///
/// The 64-bit integer is "unsigned long long", which for typeid differs from std::uint64_t on Linux.
#define TIDEWATCH_ASCII_ELEMENT_TYPES(ROW)                                                                   \
    ROW(float)                                                                                               \
    ROW(double)                                                                                              \
    ROW(long double)                                                                                         \
    ROW(unsigned char)                                                                                       \
    ROW(unsigned short)                                                                                      \
    ROW(unsigned int)                                                                                        \
    ROW(unsigned long long)                                                                                  \
    ROW(int)                                                                                                 \
    ROW(Geom::PhysicalSpace::point)                                                                          \
    ROW(Geom::PhysicalSpace::vector)                                                                         \
    ROW(Sheaf::Element::Color)                                                                               \
    ROW(Sheaf::Element::FloatBivector)                                                                       \
    ROW(Geom::PhysicalSpace::bivector)

namespace ExportLib {

/// The field with the positions of the values of all other fields.
inline constexpr std::string_view positionsName = "Positions";

/// Everything that a writer needs to know about one fragment of one field. It exists for one dispatch and
/// owns nothing but its path; everything it refers to outlives it.
struct CheckType {
    /// The creator of the fragment's values.
    const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& data;
    /// The field; its element type decides which writer takes the fragment.
    const Sheaf::Field& field;
    /// Contains the field, its positions and its cell types.
    const Sheaf::Representation& representation;
    /// The path of the output file without its extension, which the writer appends.
    std::filesystem::path outputPath;
    /// The fragment; may be null.
    const Anchor::StrongPtr<Sheaf::FragmentID>& fragment;
    /// The exporter's settings, see ExportPointCloudToASCII.
    const Geom::MultiRange<double>& cellTypeFilter;
    const std::string& cellTypeFieldName;
    const unsigned int& precision;
    bool append;
    bool tileSuffix;

    // The members above are part of the contract with hosts; the following are our own.

    /// Whether each line is handed to the system as soon as it is complete.
    bool flushLines = true;
    /// Set by the writer: the file, if it opened one.
    std::optional<ConvLib::WrittenFile> written = {};
    /// Asked whether to continue; its observer is notified of changed values. May be null.
    const ConvLib::BasicConverterDefs* run = nullptr;
    /// The name of the field, for the observer.
    std::string_view fieldName = {};

    /// Whether there is an observer.
    [[nodiscard]] bool isObserved() const noexcept { return run != nullptr && run->Observer(); }

    /// The writer for one element type.
    template <class T>
    struct exec {
        /// False if the field's elements are not of type T. Otherwise true, whether or not there was
        /// something to write: no other writer needs to be tried. Throws what creators of arrays throw.
        static bool Break(CheckType& c);
    };
};

#define TIDEWATCH_ROW(TYPE) extern template struct CheckType::exec<TYPE>;
TIDEWATCH_ASCII_ELEMENT_TYPES(TIDEWATCH_ROW)
#undef TIDEWATCH_ROW

/// Offers the fragment to the writers in order until one accepts it; nothing happens if none does.
void dispatch(CheckType& c);

} // namespace ExportLib
