// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/CreativeArrayBase.hpp"
#include "sheaf/FragmentID.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/Representation.hpp"
#include "sheaf/Skeleton.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>

/// Rules shared by a run of the LAS exporter and its plan.
namespace ExportLib {

/// The number of points of an array, modulo 2^32; 0 if there is no array.
[[nodiscard]] std::uint32_t pointCount(const Sheaf::CreativeArrayBase& creator);

/// The name of a fragment in file names.
[[nodiscard]] std::string tileName(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment);

/// The file of a grid, or with `tiles` that of a fragment.
[[nodiscard]] std::string lasFileName(const std::string& outputPath,
                                      const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, bool tiles,
                                      bool uncompressed);

/// The optional parts of records. Only the names of fields decide: whether a field may and can be used is
/// determined when points are written, and an attribute that is not has zeros.
struct RecordRoom {
    bool colors = false;
    bool reflectance = false;
    bool amplitude = false;
};
[[nodiscard]] RecordRoom roomOfRecords(const Sheaf::Grid& grid, const Sheaf::Representation& representation);

/// The attribute that a field becomes.
[[nodiscard]] const std::string& attributeOf(const std::map<std::string, std::string>& renames,
                                             const std::string& field);

/// Visits the fields of a grid that become attributes of a fragment. `chart` may be null.
///
/// `useField(name)` returns whether a field may be used, `make(creator)` its data or null,
/// `attributeFor(name)` the attribute that it becomes, and `capture(attribute, name, data)` receives them. A
/// field whose name is already in use as an attribute is skipped: `passOver(name)`.
template <class UseField, class Make, class AttributeFor, class Capture, class PassOver>
void captureFields(const Sheaf::Grid& grid, const Anchor::StrongPtr<Sheaf::BaseSpace>& chart,
                   const Anchor::StrongPtr<Sheaf::Skeleton>& skeleton,
                   const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, UseField useField, Make make,
                   AttributeFor attributeFor, Capture capture, PassOver passOver) {
    std::unordered_set<std::string> taken;
    skeleton->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        const std::string name = id.name();
        if (!useField(name))
            return true;
        if (taken.contains(name)) {
            passOver(name);
            return true;
        }
        const auto field = chart ? grid.getField(chart, name, skeleton) : nullptr;
        const auto creator = field ? field->getCreator(fragment) : nullptr;
        if (!creator)
            return true;
        if (const auto data = make(creator)) {
            std::string attribute = attributeFor(name);
            capture(attribute, name, data);
            taken.insert(std::move(attribute));
        }
        return true;
    });
}

} // namespace ExportLib
