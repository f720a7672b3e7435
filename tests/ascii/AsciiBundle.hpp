// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Support {

/// Data of any rank from 1 to 4, x fastest.
template <class T>
Anchor::StrongPtr<Sheaf::CreativeArrayBase> heldArray(const Sheaf::Extents& extents,
                                                      std::vector<T> elements) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(extents, std::move(elements)));
}

inline Anchor::StrongPtr<Sheaf::CreativeArrayBase> heldLattice(const Geom::PhysicalSpace::point& origin,
                                                               const Geom::PhysicalSpace::vector& spacing,
                                                               const Sheaf::MultiIndex<3>& extents) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(
        Anchor::makeStrong<Sheaf::UniformCartesianArray>(origin, spacing, extents));
}

/// Every file below a folder with its content, and every folder without content as "name/".
inline std::map<std::string, std::string> treeOf(const std::filesystem::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        if (!entry.is_directory())
            tree[name] = readBytes(entry.path());
        else if (std::filesystem::is_empty(entry.path()))
            tree[name + "/"] = "";
    }
    return tree;
}

/// The names in treeOf().
inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& [name, content] : treeOf(folder))
        names.push_back(name);
    return names;
}

} // namespace Support
