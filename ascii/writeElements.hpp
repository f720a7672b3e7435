// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/FragmentWatch.hpp"
#include "ascii/TextFile.hpp"
#include "ascii/elementText.hpp"
#include "ascii/rowParts.hpp"
#include "sheaf/MemArray.hpp"

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace ExportLib {

/// The path of a text file, from the path without its extension. Positions get the name that users expect.
[[nodiscard]] std::filesystem::path elementsPath(std::filesystem::path path);

/// Writes one line per element, in storage order.
template <class T, bool isObserved>
std::uint64_t writeList(ConvLib::LineWriter& lines, const Sheaf::TypedArray<T>& elements,
                        FragmentWatch<T, isObserved>& watch) {
    const std::span<const T> all = elements.base_vector();
    const auto spanOf = [&](std::size_t begin, std::size_t end) { return all.subspan(begin, end - begin); };
    watch.write(
        lines, all.size(),
        [&](ConvLib::LineText& text, std::size_t begin, std::size_t end, auto& counts) {
            for (const T& element : spanOf(begin, end)) {
                elementText(text, element);
                text.endLine();
                counts.add(element);
            }
        },
        spanOf);
    return all.size();
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
    const std::uint64_t columns = stated[0];
    const std::uint64_t rows = stated[1];
    if (columns == 0) {
        writeEmptyLines(lines, rows, watch);
        return 0;
    }
    const std::uint64_t width = table->extents()[0];
    const std::span<const T> all = table->base_vector();
    watch.write(
        lines, rows * columns,
        [&](ConvLib::LineText& text, std::size_t begin, std::size_t end, auto& counts) {
            forEachRowPart(begin, end, columns, [&](std::uint64_t row, std::uint64_t from, std::uint64_t to) {
                for (const T& element : all.subspan(row * width + from, to - from)) {
                    elementText(text, element);
                    text.character(' ');
                    counts.add(element);
                }
                if (to == columns)
                    text.endLine();
            });
        },
        // A block ends anywhere in a row, and elements beyond the stated columns are not written.
        [&](std::size_t begin, std::size_t end) {
            std::vector<T> written;
            written.reserve(end - begin);
            forEachRowPart(begin, end, columns, [&](std::uint64_t row, std::uint64_t from, std::uint64_t to) {
                const auto part = all.subspan(row * width + from, to - from);
                written.insert(written.end(), part.begin(), part.end());
            });
            return written;
        });
    return rows * columns;
}

/// Writes elements to an open file: a table if the array has two axes, else a list.
template <class T, bool isObserved>
std::uint64_t writeTo(TextFile& file, const CheckType& c, const Sheaf::TypedArray<T>& elements) {
    FragmentWatch<T, isObserved> watch(c, defaultDecimals);
    const auto extents = Sheaf::getSize(*c.data);
    return extents && extents->rank() == 2 ? writeTable(file.lines(), elements, *extents, watch)
                                           : writeList(file.lines(), elements, watch);
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
