// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/FragmentWatch.hpp"
#include "ascii/TextFile.hpp"
#include "ascii/elementText.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <span>

namespace ExportLib {

/// The path of a text file, from the path without its extension. Positions get the name that users expect.
[[nodiscard]] std::filesystem::path elementsPath(std::filesystem::path path);

/// Calls write(element) for each of the elements, and the stop question after each block of them.
template <class T, bool isObserved, class Write>
void writeInBlocks(std::span<const T> elements, FragmentWatch<T, isObserved>& watch, Write&& write) {
    while (!elements.empty()) {
        const auto block = elements.first(std::min<std::size_t>(elements.size(), watch.block));
        for (const T& element : block) {
            write(element);
            watch.add(element);
        }
        watch.wrote(block);
        elements = elements.subspan(block.size());
    }
}

/// Writes one line per element, in storage order.
template <class T, bool isObserved>
std::uint64_t writeList(ConvLib::LineWriter& lines, const Sheaf::TypedArray<T>& elements,
                        FragmentWatch<T, isObserved>& watch) {
    writeInBlocks(std::span<const T>(elements.base_vector()), watch, [&](const T& element) {
        elementText(lines, element);
        lines.endLine();
    });
    return elements.base_vector().size();
}

/// Writes one line per row, every element followed by a blank; rows without columns are empty lines. Writes nothing if
/// the array does not have all the columns and rows that its creator stated.
template <class T, bool isObserved>
std::uint64_t writeTable(ConvLib::LineWriter& lines, const Sheaf::TypedArray<T>& elements,
                         const Sheaf::Extents& stated, FragmentWatch<T, isObserved>& watch) {
    const auto* const table = dynamic_cast<const Sheaf::MemArray<2, T>*>(&elements);
    if (table == nullptr || table->extents()[0] < stated[0] || table->extents()[1] < stated[1] ||
        table->extents().elementCount() != table->base_vector().size())
        return 0;
    for (std::uint64_t row = 0; row < stated[1]; ++row) {
        const std::span<const T> all = table->base_vector();
        writeInBlocks(all.subspan(row * table->extents()[0], stated[0]), watch, [&](const T& element) {
            elementText(lines, element);
            lines.character(' ');
        });
        lines.endLine();
        // There may be many rows without columns.
        watch.wrote(1);
    }
    return stated[0] * stated[1];
}

/// Writes elements to an open file: a table if the array has two axes, else a list.
template <class T, bool isObserved>
std::uint64_t writeTo(TextFile& file, const CheckType& c, const Sheaf::TypedArray<T>& elements) {
    FragmentWatch<T, isObserved> watch(c, defaultDecimals);
    const auto extents = Sheaf::getSize(*c.data);
    const std::uint64_t count = extents && extents->rank() == 2
                                    ? writeTable(file.lines(), elements, *extents, watch)
                                    : writeList(file.lines(), elements, watch);
    watch.finish(count);
    return count;
}

/// Writes a fragment's elements as text. Creates no file if there is no array of such elements.
template <class T>
void writeElements(CheckType& c) {
    const auto elements = Anchor::dynamicCast<Sheaf::TypedArray<T>>(c.data->create(false));
    if (!elements)
        return;
    TextFile file(elementsPath(c.outputPath), c.append, c.flushLines);
    const std::uint64_t count =
        c.isObserved() ? writeTo<T, true>(file, c, *elements) : writeTo<T, false>(file, c, *elements);
    c.written = file.close(count);
}

} // namespace ExportLib
