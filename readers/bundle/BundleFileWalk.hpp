// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Object.hpp"
#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/source/Source.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Tidewatch {

/// Reads the structure of one bundle file.
class BundleFileWalk {
public:
    /// `tick` is called from time to time and may throw to stop.
    BundleFileWalk(const Hdf5::OpenFile& file, const Source::Tick& tick);

    /// Throws Anchor::FormatError for a file that is damaged, hostile or not a bundle file.
    [[nodiscard]] Structure run();

private:
    void checkFormat(const Hdf5::Object& root) const;
    [[nodiscard]] Structure::Slice readSlice(const Hdf5::Object& group);
    [[nodiscard]] Structure::Grid readGrid(const Hdf5::Object& group, const std::string& name);
    [[nodiscard]] std::vector<Structure::Chart> readCharts(const Hdf5::Object& group);
    [[nodiscard]] Sheaf::FileStatement readStatement(const Hdf5::Object& grid);
    [[nodiscard]] std::vector<Sheaf::FileRecord> readRecords(const Hdf5::Object& group);
    [[nodiscard]] Sheaf::FileRecord readRecord(Hdf5::Object object);
    [[nodiscard]] std::optional<Sheaf::FieldEncoding> readEncoding(const Hdf5::Object& field);
    /// Counts bytes that an object has beside fields against Structure::mostPropertyBytes.
    void spend(const Hdf5::Object& object, std::uint64_t bytes);
    [[nodiscard]] std::vector<Structure::Fragment> readFragments(const Hdf5::Object& group);
    [[nodiscard]] Structure::Skeleton readSkeleton(const Hdf5::Object& group);
    [[nodiscard]] Structure::Field readField(Hdf5::Object object, const std::string& name);

    /// The data of one fragment: a dataset or a uniform group. Without an element type it is the dataset's own
    /// number type.
    [[nodiscard]] Structure::Piece readPiece(Hdf5::Object object, const std::string& element) const;

    /// The members of a group whose keys have no meaning.
    [[nodiscard]] std::vector<std::string> members(const Hdf5::Object& group);
    /// The members of a group whose keys are names, which must be valid.
    [[nodiscard]] std::vector<std::string> namedMembers(const Hdf5::Object& group, const char* what);
    /// A member that is a group; nothing if there is none.
    [[nodiscard]] std::optional<Hdf5::Object> findGroup(const Hdf5::Object& parent, const char* name) const;

    const Hdf5::OpenFile& file_;
    const Source::Tick& tick_;
    /// How many more links may be followed. A group linked from many places is walked once for each link, so
    /// a few kilobytes of groups that link to each other would take forever; a file without such groups has
    /// some bytes for every link.
    std::uint64_t linksLeft_;
    std::uint64_t propertyBytesLeft_ = Structure::mostPropertyBytes;
    std::set<double> times_;
};

} // namespace Tidewatch
