// SPDX-License-Identifier: Apache-2.0
#include "las/lasRules.hpp"

namespace ExportLib {

std::uint32_t pointCount(const Sheaf::CreativeArrayBase& creator) {
    const auto extents = Sheaf::getSize(creator);
    if (!extents)
        return 0;
    std::uint32_t count = 1;
    for (std::size_t axis = 0; axis < extents->rank(); ++axis)
        count *= static_cast<std::uint32_t>((*extents)[axis]);
    return count;
}

std::string tileName(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    return fragment ? fragment->name() : "Unfragmented";
}

std::string lasFileName(const std::string& outputPath, const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                        bool tiles, bool uncompressed) {
    // The last dot of the whole path, even in a folder: hosts that pass "run.3/cloud" have always got
    // "run.laz". A path without a dot is used as it is.
    return outputPath.substr(0, outputPath.rfind('.')) + (tiles ? "_" + tileName(fragment) : std::string()) +
           (uncompressed ? ".las" : ".laz");
}

RecordRoom roomOfRecords(const Sheaf::Grid& grid, const Sheaf::Representation& representation) {
    RecordRoom room;
    room.colors = representation.findField("RGB") != nullptr;
    if (const auto skeleton = grid.skeletons().findVertices(-1)) {
        skeleton->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
            room.reflectance = room.reflectance || id.name() == "Reflectance";
            room.amplitude = room.amplitude || id.name() == "Amplitude";
            return true;
        });
    }
    return room;
}

const std::string& attributeOf(const std::map<std::string, std::string>& renames, const std::string& field) {
    const auto renamed = renames.find(field);
    return renamed != renames.end() ? renamed->second : field;
}

} // namespace ExportLib
