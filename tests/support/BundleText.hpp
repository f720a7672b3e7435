// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>

namespace Support {

namespace Detail {

/// One number, so that equal text means equal value, whatever kind of number it is.
template <class C>
void writeNumber(std::ostream& out, C value) {
    if constexpr (std::is_integral_v<C>) {
        out << +value;
    } else {
        // A long double has ten bytes of value and six that mean nothing.
        constexpr std::size_t size = sizeof(C) == 16 ? 10 : sizeof(C);
        unsigned char bytes[sizeof(C)];
        std::memcpy(bytes, &value, sizeof(C));
        for (std::size_t i = size; i-- > 0;)
            out << "0123456789abcdef"[bytes[i] >> 4] << "0123456789abcdef"[bytes[i] & 15];
    }
    out << ' ';
}

inline void writeExtents(std::ostream& out, const Sheaf::Extents& extents) {
    out << '(';
    for (std::size_t axis = 0; axis < extents.rank(); ++axis)
        out << extents[axis] << ' ';
    out << ") ";
}

} // namespace Detail

/// Everything about an array, as text.
inline std::string arrayText(const Sheaf::MemBase& array) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << Sheaf::elementTypeName(array.elementType()) << ' ';
    Detail::writeExtents(out, array.extents());
    if (const auto* const lattice = dynamic_cast<const Sheaf::UniformCartesianArray*>(&array)) {
        out << "uniform ";
        for (const double number : {lattice->origin().x, lattice->origin().y, lattice->origin().z,
                                    lattice->spacing().x, lattice->spacing().y, lattice->spacing().z})
            Detail::writeNumber(out, number);
        return out.str();
    }
    Sheaf::visitElementType(array.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Component = typename Sheaf::ElementTraits<T>::Component;
        for (const T& element : dynamic_cast<const Sheaf::TypedArray<T>&>(array).base_vector()) {
            Component components[Sheaf::ElementTraits<T>::componentCount];
            std::memcpy(components, &element, sizeof element);
            for (const Component component : components)
                Detail::writeNumber(out, component);
        }
    });
    return out.str();
}

/// What files state beside fields, nothing where that is nothing.
inline void writeStatement(std::ostream& out, const Sheaf::FileStatement& statement) {
    for (const auto& numbers : {statement.step, statement.offset}) {
        out << (numbers ? "  numbers " : "");
        for (std::size_t axis = 0; numbers && axis < 3; ++axis)
            Detail::writeNumber(out, (*numbers)[axis]);
        out << (numbers ? "\n" : "");
    }
    if (statement.gpsTime)
        out << "  GPS time " << static_cast<int>(*statement.gpsTime) << '\n';
    if (statement.fileSourceId)
        out << "  source " << *statement.fileSourceId << '\n';
    if (statement.systemIdentifier)
        out << "  system [" << *statement.systemIdentifier << "]\n";
    for (const Sheaf::FileRecord& record : statement.records)
        out << "  record [" << record.userId << "] " << record.recordId << " [" << record.description << "] ["
            << std::string(record.bytes.begin(), record.bytes.end()) << "]\n";
}

inline void writeEncoding(std::ostream& out, const Sheaf::FieldEncoding& encoding) {
    out << "     stored as [" << encoding.name << "] [" << encoding.description << "] "
        << Sheaf::elementTypeName(*encoding.type);
    for (const auto& number : {encoding.scale, encoding.offset}) {
        out << (number ? " by " : " -");
        if (number)
            Detail::writeNumber(out, *number);
    }
    if (encoding.noData)
        Detail::writeNumber(out, *encoding.noData);
    out << '\n';
}

/// Everything that a bundle holds, arrays included, as text: two bundles are equal when their texts are.
inline std::string bundleText(const Sheaf::Bundle& bundle) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice)
            continue;
        out << "slice ";
        Detail::writeNumber(out, time);
        out << '\n';
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            if (!grid)
                continue;
            out << " grid " << name << '\n';
            for (const std::string& chart : grid->chartNames())
                out << "  chart " << chart << ' ' << grid->findChart(chart)->referenceSystem() << '\n';
            writeStatement(out, grid->statement());
            for (const auto& [key, fragment] : grid->fragments()) {
                out << "  fragment " << key;
                for (const auto& overlap : {fragment->overlapLow, fragment->overlapHigh}) {
                    out << (overlap ? " [" : " none");
                    for (std::size_t axis = 0; overlap && axis < 3; ++axis)
                        out << (*overlap)[axis] << (axis < 2 ? ' ' : ']');
                }
                out << '\n';
            }
            grid->skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
                out << "  skeleton " << skeleton.dimension() << " (";
                for (const int level : skeleton.refinement())
                    out << level << ' ';
                out << ") " << skeleton.exclusionMark() << '\n';
                skeleton.representations().forEach(
                    [&](const Sheaf::BaseSpace& space, const Sheaf::Representation& representation) {
                        out << "   in " << dynamic_cast<const Sheaf::CartesianChart&>(space).name() << '\n';
                        return representation.forEachField([&](const Sheaf::FieldID& id,
                                                               const Sheaf::Field& field) {
                            out << "    field " << id.name() << ' '
                                << Sheaf::elementTypeName(field.getElementType()) << '\n';
                            if (field.encoding())
                                writeEncoding(out, *field.encoding());
                            field.forEachFragment([&](const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                                      const Sheaf::Field::Creator& data) {
                                const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data->create(false));
                                out << "     " << (fragment ? fragment->name() : "(whole)") << ": "
                                    << (array ? arrayText(*array) : "nothing") << '\n';
                                return true;
                            });
                            return true;
                        });
                    });
                return true;
            });
        }
    }
    return out.str();
}

} // namespace Support
