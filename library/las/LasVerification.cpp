// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasVerification.hpp"

#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "library/las/LasColumns.hpp"
#include "library/las/LasExpectation.hpp"
#include "library/las/LasStatement.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/Bundle.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

[[noreturn]] void fail(const std::string& name, const std::string& what) {
    throw Anchor::FormatError(fmt::format("{}: check of the written file: {}", name, what));
}

/// A written file as the readers see it.
class ReadBack {
public:
    ReadBack(const std::string& path, ConvLib::ReadOptions options)
        : bundle_(Anchor::makeStrong<Sheaf::Bundle>()) {
        ConvLib::readFile(*bundle_, path, options);
        LasSettings settings;
        settings.renames = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
        for (const auto& [time, slice] : bundle_->slices()) {
            for (const auto& [name, grid] : slice.lock()->grids())
                mapping_ = LasMapping::of(*grid.lock(), settings, [](const std::string&) { return true; });
        }
    }

    [[nodiscard]] const LasMapping& mapping() const noexcept { return mapping_; }

private:
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    LasMapping mapping_;
};

/// Goes through the points of a written file in order.
class Points {
public:
    explicit Points(const LasMapping& mapping) : mapping_(mapping) {}

    /// Goes to the next point; false behind the last one.
    bool next() {
        ++place_;
        while (place_ >= size_) {
            if (nextFragment_ == mapping_.fragments.size())
                return false;
            const LasMapping::Fragment& fragment = mapping_.fragments[nextFragment_++];
            columns_ = {};
            columns_ = LasColumns::load(fragment.captures);
            size_ = valuesOf(columns_.positions).size();
            place_ = 0;
        }
        return true;
    }

    /// The columns of the current point's fragment, and its place in them.
    [[nodiscard]] const LasColumns& columns() const noexcept { return columns_; }
    [[nodiscard]] std::size_t place() const noexcept { return place_; }

private:
    const LasMapping& mapping_;
    LasColumns columns_;
    std::size_t size_ = 0;
    std::size_t place_ = std::numeric_limits<std::size_t>::max();
    std::size_t nextFragment_ = 0;
};

/// Compares points, and keeps what is asked about all of them.
class Comparison {
public:
    Comparison(const std::string& name, const LasMapping& mapping, const LasSettings& settings)
        : name_(name),
          mapping_(mapping),
          settings_(settings) {}

    void compare(std::uint64_t number, const LasPoint& expected, const LasColumns& file, std::size_t i) {
        number_ = number;
        comparePosition(expected.position, valueAt(file.positions, i, "Positions"));
        same("Intensity", valueAt(file.intensity, i, "Intensity"), expected.intensity);
        const unsigned char returnNumber = valueAt(file.returnNumber, i, "ReturnNumber");
        same("ReturnNumber", returnNumber, expected.returnNumber);
        ++pointsByReturn_[returnNumber & 0xFU];
        same("NumberOfReturns", valueAt(file.numberOfReturns, i, "NumberOfReturns"),
             expected.numberOfReturns);
        same("Classification", valueAt(file.classification, i, "Classification"), expected.classification);
        same("ScanDirectionFlag", valueAt(file.scanDirectionFlag, i, "ScanDirectionFlag"),
             expected.scanDirection);
        same("EdgeOfFlightLine", valueAt(file.edgeOfFlightLine, i, "EdgeOfFlightLine"),
             expected.edgeOfFlightLine);
        same("UserData", valueAt(file.userData, i, "UserData"), expected.userData);
        if (settings_.isExtended())
            same("ScanAngleRank", valueAt(file.scanAngle, i, "ScanAngleRank"), expected.scanAngle);
        else
            same("ScanAngleRank", short{valueAt(file.scanAngleRank, i, "ScanAngleRank")}, expected.scanAngle);
        same("PointSourceID", valueAt(file.pointSourceID, i, "PointSourceID"), expected.pointSourceID);
        if (mapping_.hasGpsTime(settings_))
            sameBits("GPSTime", valueAt(file.gpsTime, i, "GPSTime"), expected.gpsTime);
        if (mapping_.hasColors) {
            const auto& color = valueAt(file.rgb, i, "RGB");
            for (std::size_t channel = 0; channel < expected.rgb.size(); ++channel)
                same("RGB", color[channel], expected.rgb[channel]);
        }
        if (mapping_.hasReflectance) {
            const double value = static_cast<double>(valueAt(file.reflectance, i, "Reflectance"));
            same("Reflectance", std::lround((value + 25) * 2184), long{expected.reflectance});
        }
        if (mapping_.hasAmplitude)
            same("Amplitude", valueAt(file.amplitudeFloat, i, "Amplitude"),
                 static_cast<float>(expected.amplitude));
    }

    void compareExtent(const LasStatement& statement, const Geom::BoundingBox& box) const {
        const LasAxes axes = lasAxes(box);
        const PhysicalSpace::point& lower = box.lower();
        const PhysicalSpace::point& upper = box.upper();
        compareAxis('x', statement, 0, axes[0].step, lower.x, upper.x, box_.lower().x, box_.upper().x);
        compareAxis('y', statement, 1, axes[1].step, lower.y, upper.y, box_.lower().y, box_.upper().y);
        compareAxis('z', statement, 2, axes[2].step, lower.z, upper.z, box_.lower().z, box_.upper().z);
    }

    [[nodiscard]] std::vector<std::string> returnCountDifferences(const LasStatement& statement) const {
        std::vector<std::string> differences;
        for (std::size_t i = 0; i < statement.pointsByReturn.size(); ++i) {
            if (const std::uint64_t found = pointsByReturn_[i + 1]; statement.pointsByReturn[i] != found)
                differences.push_back(fmt::format("{} of return {} in the header, {} in the file",
                                                  statement.pointsByReturn[i], i + 1, found));
        }
        return differences;
    }

private:
    template <class T>
    [[nodiscard]] const T& valueAt(const LasColumns::Column<T>& column, std::size_t i,
                                   const char* attribute) const {
        if (!column || i >= column->base_vector().size())
            fail(name_, fmt::format("it has no {}", attribute));
        return column->base_vector()[i];
    }

    template <class T, class U>
    void same(const char* attribute, T found, U expected) const {
        if (found != expected)
            differ(attribute, fmt::format("{}", found), fmt::format("{}", expected));
    }

    void sameBits(const char* attribute, double found, double expected) const {
        // What is not a number is kept as it is, too.
        if (found != expected && !(std::isnan(found) && std::isnan(expected)))
            differ(attribute, shortestText(found), shortestText(expected));
    }

    void comparePosition(const PhysicalSpace::point& expected, const PhysicalSpace::point& found) {
        box_.expand(found);
        near("x", found.x, expected.x);
        near("y", found.y, expected.y);
        near("z", found.z, expected.z);
    }

    void near(const char* axis, double found, double expected) const {
        // Half a step; the sum of offset and steps is rounded at the magnitude of the coordinate.
        const double tolerance = ExportLib::ExportPointCloudToLas::AxisOf(0, 0).step * 0.5 * (1 + 1e-6) +
                                 8 * std::numeric_limits<double>::epsilon() * std::abs(expected);
        if (!(std::abs(found - expected) <= tolerance))
            differ(axis, coordinateText(found), coordinateText(expected));
    }

    [[noreturn]] void differ(const char* attribute, const std::string& found,
                             const std::string& expected) const {
        fail(name_, fmt::format("point {}: {} is {} in the file, {} was expected", number_, attribute, found,
                                expected));
    }

    void compareAxis(char axis, const LasStatement& statement, std::size_t number, double step, double lower,
                     double upper, double foundLower, double foundUpper) const {
        const double stated[] = {statement.lower[number], statement.upper[number]};
        if (lower > upper)
            lower = upper = 0;
        const double tolerance =
            step + 8 * std::numeric_limits<double>::epsilon() * std::max(std::abs(lower), std::abs(upper));
        const bool fitsBox =
            std::abs(stated[0] - lower) <= tolerance && std::abs(stated[1] - upper) <= tolerance;
        const bool holdsPoints = foundLower > foundUpper ||
                                 (foundLower >= stated[0] - tolerance && foundUpper <= stated[1] + tolerance);
        if (!fitsBox || !holdsPoints)
            fail(name_,
                 fmt::format("the header states {0} from {1} to {2}, its points reach from {3} to {4}, "
                             "those handed over from {5} to {6}",
                             axis, coordinateText(stated[0]), coordinateText(stated[1]),
                             coordinateText(foundLower), coordinateText(foundUpper), coordinateText(lower),
                             coordinateText(upper)));
    }

    const std::string& name_;
    const LasMapping& mapping_;
    const LasSettings& settings_;
    std::uint64_t number_ = 0;
    Geom::BoundingBox box_;
    std::array<std::uint64_t, 16> pointsByReturn_{};
};

} // namespace

void LasVerification::checkCount(const File& file) const {
    const LasStatement statement = LasStatement::read(file.path);
    if (statement.points != file.points)
        fail(file.name, fmt::format("the header states {}, {} were written",
                                    counted(statement.points, "point"), grouped(file.points)));
    if (statement.compressed == settings_.uncompressed)
        fail(file.name, statement.compressed ? "it is compressed" : "it is not compressed");
    ConvLib::ReadOptions options;
    options.FragmentPoints = std::numeric_limits<std::uint64_t>::max();
    if (const std::uint64_t found = ReadBack(file.path, options).mapping().points(); found != file.points)
        fail(file.name,
             fmt::format("it holds {}, {} were written", counted(found, "point"), grouped(file.points)));
}

std::vector<std::string> LasVerification::compare(const File& file, const LasMapping& mapping,
                                                  std::span<const LasWalk::Written> fragments,
                                                  const Geom::BoundingBox& box) const {
    const LasStatement statement = LasStatement::read(file.path);
    if (statement.versionMinor != static_cast<unsigned>(settings_.version) ||
        statement.pointFormat != mapping.pointFormat(settings_))
        fail(file.name, fmt::format("it is LAS 1.{}, point format {}; LAS 1.{}, point format {} was expected",
                                    statement.versionMinor, statement.pointFormat, settings_.version,
                                    mapping.pointFormat(settings_)));
    ConvLib::ReadOptions options;
    // Small beside the fragments that are compared with.
    options.FragmentPoints = 100'000;
    options.Tick = tick;
    const ReadBack readBack(file.path, options);
    Points points(readBack.mapping());
    LasExpectation expectation(mapping, settings_, lasAxes(box));
    Comparison comparison(file.name, mapping, settings_);
    std::uint64_t number = 0;
    for (const LasWalk::Written& written : fragments) {
        if (!written.hasPositions)
            continue;
        const LasMapping::Fragment& fragment = *written.fragment;
        if (beginPass)
            beginPass(fragment.points);
        expectation.take(LasColumns::load(fragment.captures));
        for (std::size_t i = 0; i < fragment.points; ++i) {
            if (!points.next())
                fail(file.name, fmt::format("it ends after {}", counted(number, "point")));
            comparison.compare(++number, expectation.point(i), points.columns(), points.place());
        }
        expectation.take({});
    }
    if (points.next())
        fail(file.name, fmt::format("it goes on after {}", counted(number, "point")));
    comparison.compareExtent(statement, box);
    return comparison.returnCountDifferences(statement);
}

} // namespace Tidewatch
