// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/BundleArrayCreator.hpp"
#include "readers/bundle/hdf5/Object.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Tidewatch {

/// One reading of a bundle file's structure into a bundle. What it added is taken out again by its destructor
/// unless the walk came to its end.
class BundleFileWalk {
public:
    BundleFileWalk(Sheaf::Bundle& bundle, std::shared_ptr<const BundleSource> source);
    ~BundleFileWalk();
    BundleFileWalk(const BundleFileWalk&) = delete;
    BundleFileWalk& operator=(const BundleFileWalk&) = delete;

    /// Throws Anchor::FormatError for a file that is damaged, hostile or none of ours, Anchor::LimitError for
    /// uniform positions beyond the limit, Anchor::ModelError for a grid that the bundle has already.
    void run();

private:
    void checkFormat(const Hdf5::Object& root) const;
    void readSlice(const Hdf5::Object& group);
    void readGrid(const Hdf5::Object& group, const std::string& name, Sheaf::Slice& slice);
    void readCharts(const Hdf5::Object& group, Sheaf::Grid& grid);
    void readFragments(const Hdf5::Object& group, Sheaf::Grid& grid);
    void readSkeleton(const Hdf5::Object& group, Sheaf::Grid& grid);
    void readRepresentation(const Hdf5::Object& group, Sheaf::Grid& grid, Sheaf::Representation& target);
    void readField(Hdf5::Object object, const std::string& name, Sheaf::Grid& grid,
                   Sheaf::Representation& target);

    /// The creator for the data of one fragment: a dataset or a uniform group. Null as an element type stands
    /// for the dataset's own number type.
    [[nodiscard]] Sheaf::Field::Creator makeCreator(Hdf5::Object object, const std::type_info* element) const;
    [[nodiscard]] Sheaf::Field::Creator makeUniform(const Hdf5::Object& group) const;

    /// The members of a group whose keys are free.
    [[nodiscard]] std::vector<std::string> members(const Hdf5::Object& group);
    /// The members of a group that are called something by their names; those have to be fit for it.
    [[nodiscard]] std::vector<std::string> namedMembers(const Hdf5::Object& group, const char* what);
    /// The members of a group that need not be there.
    [[nodiscard]] std::optional<Hdf5::Object> findGroup(const Hdf5::Object& parent, const char* name) const;

    Sheaf::Bundle& bundle_;
    std::shared_ptr<const BundleSource> source_;
    /// How many more links may be followed. A group that hangs in many places is walked once for each of
    /// them, and a few kilobytes of groups that hang in each other would keep the walk busy for ever; but a
    /// file without such groups has some bytes for every link.
    std::uint64_t linksLeft_;
    std::set<double> times_;
    std::vector<double> addedSlices_;
    std::vector<std::pair<Anchor::StrongPtr<Sheaf::Slice>, std::string>> addedGrids_;
    bool isDone_ = false;
};

} // namespace Tidewatch
