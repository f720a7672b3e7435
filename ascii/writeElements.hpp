// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/TextFile.hpp"
#include "ascii/elementText.hpp"
#include "sheaf/MemArray.hpp"

#include <cstdint>
#include <filesystem>

namespace ExportLib {

/// The path of a text file for the fragment. Positions go by the name that users look for.
[[nodiscard]] std::filesystem::path elementsPath(const CheckType& c);

/// Writes a line an element, in storage order.
template <class T>
std::uint64_t writeList(ConvLib::LineWriter& lines, const Sheaf::TypedArray<T>& elements) {
    for (const T& element : elements.base_vector()) {
        elementText(lines, element);
        lines.endLine();
    }
    return elements.base_vector().size();
}

/// Writes a line a row, every element followed by a blank; rows without columns are empty lines. Writes
/// nothing where the array has not got all of the columns and rows that its creator promised.
template <class T>
std::uint64_t writeTable(ConvLib::LineWriter& lines, const Sheaf::TypedArray<T>& elements,
                         const Sheaf::Extents& promised) {
    const auto* const table = dynamic_cast<const Sheaf::MemArray<2, T>*>(&elements);
    if (table == nullptr || table->extents()[0] < promised[0] || table->extents()[1] < promised[1] ||
        table->extents().elementCount() != table->base_vector().size())
        return 0;
    for (std::uint64_t row = 0; row < promised[1]; ++row) {
        for (std::uint64_t column = 0; column < promised[0]; ++column) {
            elementText(lines, (*table)({column, row}));
            lines.character(' ');
        }
        lines.endLine();
    }
    return promised[0] * promised[1];
}

/// Writes a fragment's elements as text: a table where the array has two axes, a list otherwise. No file
/// where there is no array of such elements.
template <class T>
void writeElements(CheckType& c) {
    const auto elements = Anchor::dynamicCast<Sheaf::TypedArray<T>>(c.data->create(false));
    if (!elements)
        return;
    TextFile file(elementsPath(c), c.append, c.flushLines);
    const auto extents = Sheaf::getSize(*c.data);
    const std::uint64_t count = extents && extents->rank() == 2
                                    ? writeTable(file.lines(), *elements, *extents)
                                    : writeList(file.lines(), *elements);
    c.written = file.close(count);
}

} // namespace ExportLib
