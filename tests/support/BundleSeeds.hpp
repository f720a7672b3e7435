// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/BundleFileWriter.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/Hdf5Craft.hpp"

#include <string>
#include <vector>

/// Small valid bundle files that have a bit of everything, to be damaged by tests and fuzzers.
namespace Support::Seeds {

/// As the writer makes them: plain arrays, a uniform lattice, an overlap.
inline void written(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 1, "g", {1, 1});
    grid.field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}});
    grid.field("Intensity", "", std::vector<unsigned short>{1, 2});
    grid.grid().makeFragment("a")->overlapLow = {1, 1, 0};
    Tidewatch::writeBundleFile(*bundle, path);
}

/// With all that files state of grids and fields.
inline void writtenStated(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 1, "g");
    grid.field("Positions", "a", Points{{1, 2, 3}});
    grid.field("Height", "a", std::vector<double>{0.25});
    Sheaf::FileStatement statement;
    statement.step = {0.01, 0.01, 0.25};
    statement.offset = {1, 2, 3};
    statement.gpsTime = Sheaf::FileStatement::GpsTime::Adjusted;
    statement.fileSourceId = 7;
    statement.systemIdentifier = "scanner";
    statement.records = {{"Somebody", 1, "said", {1, 2, 3}}};
    grid.grid().setStatement(std::move(statement));
    grid.grid().findChart("")->setReferenceSystem("LOCAL_CS[\"a\"]");
    grid.representation()->findField("Height")->setEncoding(
        {"Height", "[m]", &typeid(short), 0.25, 1.0, -1.0L});
    Tidewatch::writeBundleFile(*bundle, path);
}

inline void writtenUniform(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{1, 2, 3}, Geom::PhysicalSpace::vector{0.5, 0.5, 1},
                   Sheaf::MultiIndex<3>{2, 3, 1})));
    Tidewatch::writeBundleFile(*bundle, path);
}

/// As other programs make them: in any form of the format, with compressed chunks, big-endian numbers and
/// texts of variable length.
inline void foreign(const std::string& path, Craft::File::Form form) {
    const std::vector<double> numbers{1, 2, 3, 4, 5, 6};
    Craft::File file(path, form, true);
    file.bundle().grid();
    Craft::Properties chunked;
    chunked.chunk({1, 3}).filters(true, 1, true);
    file.dataset(Craft::fields + "Positions", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {2, 3}, numbers.data(),
                 chunked.id());
    file.dataset(Craft::fields + "N", H5T_STD_I32BE, H5T_NATIVE_DOUBLE, {2, 3}, numbers.data());
    file.longText(Craft::fields + "N", "element", "int16");
}

/// With indexes of several levels, in groups and in chunks.
inline void large(const std::string& path, Craft::File::Form form) {
    std::vector<double> numbers(60);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<double>(i);
    Craft::File file(path, form, true);
    file.bundle().grid();
    for (int i = 0; i < 4; ++i)
        file.dataset(Craft::fields + "F" + std::to_string(i) + "/a", H5T_STD_I16LE, H5T_NATIVE_DOUBLE, {4},
                     numbers.data());
    // So many that the newest index of a group has two levels as well.
    for (int i = 4; i < 50; ++i)
        file.group(Craft::fields + "F" + std::to_string(i));
    for (int i = 0; i < 12; ++i)
        file.number("/slices/t/grids/g/skeletons/s", ("note" + std::to_string(i)).c_str(), i);
    Craft::Properties filtered;
    filtered.chunk({3}).filters(true, 1, false);
    Craft::Properties plain;
    plain.chunk({3});
    file.dataset(Craft::fields + "Many", H5T_STD_I16LE, H5T_NATIVE_DOUBLE, {60}, numbers.data(),
                 filtered.id());
    file.dataset(Craft::fields + "Raw", H5T_STD_I16LE, H5T_NATIVE_DOUBLE, {30}, numbers.data(), plain.id());
    Craft::Properties square;
    square.chunk({3, 3});
    file.growingDataset(Craft::fields + "Tall", {10, 6}, {H5S_UNLIMITED, 6}, numbers.data(), square.id());
    file.growingDataset(Craft::fields + "Both", {10, 6}, {H5S_UNLIMITED, H5S_UNLIMITED}, numbers.data(),
                        square.id());
}

} // namespace Support::Seeds
