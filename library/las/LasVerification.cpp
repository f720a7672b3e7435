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
#include <functional>
#include <limits>
#include <optional>
#include <string_view>
#include <typeinfo>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ExportLib::LasPlan;
using ExportLib::LasSettings;
using Geom::PhysicalSpace;

[[noreturn]] void fail(const std::string& name, const std::string& what) {
    throw Anchor::FormatError(fmt::format("{}: check of the written file: {}", name, what));
}

constexpr std::string_view axisNames[] = {"x", "y", "z"};

/// The point data format that a grid asks for (LAS 1.4 R15, "Point Data Record Formats"), and the contract's habit of
/// giving up the time for colours in older versions.
unsigned pointFormatOf(const LasSettings& settings, const LasPlan& plan) {
    if (settings.isExtended())
        return plan.hasNearInfrared ? 8U : plan.hasColors ? 7U : 6U;
    const bool hasTime = std::any_of(plan.fragments.begin(), plan.fragments.end(), [](const auto& fragment) {
        return std::any_of(fragment.captures.begin(), fragment.captures.end(),
                           [](const auto& capture) { return capture.attribute == "GPSTime"; });
    });
    if (!plan.hasColors)
        return 1;
    return settings.carry && hasTime ? 3U : 2U;
}

bool hasGpsTime(unsigned pointFormat) {
    return pointFormat != 2;
}

/// A written file as read by the readers.
class ReadBack {
public:
    ReadBack(const std::string& path, ConvLib::ReadOptions options)
        : bundle_(Anchor::makeStrong<Sheaf::Bundle>()) {
        ConvLib::readFile(*bundle_, path, options);
        for (const auto& [time, slice] : bundle_->slices()) {
            for (const auto& [name, grid] : slice.lock()->grids())
                plan_ = LasPlan::of(*grid.lock(), everything(), [](const std::string&) { return true; });
        }
    }

    /// The assignment of its fields to attributes.
    [[nodiscard]] const LasPlan& plan() const noexcept { return plan_; }

private:
    static LasSettings everything() {
        LasSettings settings;
        settings.carry = true;
        return settings;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    LasPlan plan_;
};

/// Iterates over the points of a written file.
class Points {
public:
    explicit Points(const LasPlan& plan) : plan_(plan) {}

    /// Points whose values are in the same columns; none after the last one.
    struct Run {
        const LasColumns& columns;
        std::size_t first;
        std::size_t count;
    };
    /// The next points, at most that many.
    [[nodiscard]] Run next(std::uint64_t most) {
        while (place_ == size_ && nextFragment_ < plan_.fragments.size()) {
            const LasPlan::Fragment& fragment = plan_.fragments[nextFragment_++];
            columns_ = {};
            columns_ = LasColumns::load(plan_, fragment);
            size_ = valuesOf(columns_.positions).size();
            place_ = 0;
        }
        const Run run{columns_, place_,
                      static_cast<std::size_t>(std::min<std::uint64_t>(most, size_ - place_))};
        place_ += run.count;
        return run;
    }

private:
    const LasPlan& plan_;
    LasColumns columns_;
    std::size_t size_ = 0;
    std::size_t place_ = 0;
    std::size_t nextFragment_ = 0;
};

/// Compares points, and collects counts and the box of all of them.
class Comparison {
public:
    /// `found` is the plan of the file itself.
    Comparison(const std::string& name, const LasPlan& plan, const LasSettings& settings,
               const LasStatement& statement, const LasPlan& found)
        : name_(name),
          plan_(plan),
          settings_(settings),
          statement_(statement) {
        for (const LasPlan::ExtraBytes& extra : plan.extras) {
            const auto place = std::find_if(found.extras.begin(), found.extras.end(), [&](const auto& one) {
                return one.encoding.name == extra.encoding.name;
            });
            if (place == found.extras.end())
                fail(name, fmt::format("it has no extra bytes \"{}\"", extra.encoding.name));
            extras_.push_back(
                {static_cast<std::size_t>(place - found.extras.begin()), rangeOf(extra.encoding)});
        }
    }

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
        if (hasGpsTime(statement_.pointFormat))
            sameBits("GPSTime", valueAt(file.gpsTime, i, "GPSTime"), expected.gpsTime);
        if (plan_.hasColors) {
            same("RGB", valueAt(file.red, i, "RGB"), expected.rgb[0]);
            same("RGB", valueAt(file.green, i, "RGB"), expected.rgb[1]);
            same("RGB", valueAt(file.blue, i, "RGB"), expected.rgb[2]);
        }
        if (plan_.hasNearInfrared)
            same("NearInfrared", valueAt(file.nearInfrared, i, "NearInfrared"), expected.nearInfrared);
        same("Synthetic", valueAt(file.synthetic, i, "Synthetic"), expected.synthetic);
        same("KeyPoint", valueAt(file.keyPoint, i, "KeyPoint"), expected.keyPoint);
        same("Withheld", valueAt(file.withheld, i, "Withheld"), expected.withheld);
        if (settings_.isExtended()) {
            same("Overlap", valueAt(file.overlap, i, "Overlap"), expected.overlap);
            same("ScannerChannel", valueAt(file.scannerChannel, i, "ScannerChannel"),
                 expected.scannerChannel);
        }
        for (std::size_t extra = 0; extra < extras_.size(); ++extra)
            compareExtra(plan_.extras[extra].encoding, extras_[extra].range,
                         file.extras.at(extras_[extra].place), i, expected.extras.at(extra));
        if (plan_.hasReflectance) {
            const double value = static_cast<double>(valueAt(file.reflectance, i, "Reflectance"));
            same("Reflectance", std::lround((value + 25) * 2184), long{expected.reflectance});
        }
        if (plan_.hasAmplitude)
            same("Amplitude", valueAt(file.amplitudeFloat, i, "Amplitude"),
                 static_cast<float>(expected.amplitude));
    }

    /// Adds what another comparison has collected.
    void add(const Comparison& other) {
        box_.expand(other.box_);
        std::transform(pointsByReturn_.begin(), pointsByReturn_.end(), other.pointsByReturn_.begin(),
                       pointsByReturn_.begin(), std::plus<>());
    }

    void compareAxes(const LasAxes& axes) const {
        for (std::size_t axis = 0; axis < axes.size(); ++axis) {
            if (statement_.step[axis] != axes[axis].step || statement_.offset[axis] != axes[axis].offset)
                fail(name_,
                     fmt::format("the header states {} in steps of {} from {}, it was to be in steps of {} "
                                 "from {}",
                                 axisNames[axis], coordinateText(statement_.step[axis]),
                                 coordinateText(statement_.offset[axis]), coordinateText(axes[axis].step),
                                 coordinateText(axes[axis].offset)));
        }
    }

    void compareExtent(const LasAxes& axes) const {
        compareAxis(0, axes[0], box_.lower().x, box_.upper().x);
        compareAxis(1, axes[1], box_.lower().y, box_.upper().y);
        compareAxis(2, axes[2], box_.lower().z, box_.upper().z);
    }

    [[nodiscard]] std::vector<std::string> returnCountDifferences() const {
        std::vector<std::string> differences;
        for (std::size_t i = 0; i < statement_.pointsByReturn.size(); ++i) {
            if (const std::uint64_t found = pointsByReturn_[i + 1]; statement_.pointsByReturn[i] != found)
                differences.push_back(fmt::format("{} of return {} in the header, {} in the file",
                                                  statement_.pointsByReturn[i], i + 1, found));
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
    void same(std::string_view attribute, T found, U expected) const {
        if (found != expected)
            differ(attribute, fmt::format("{}", found), fmt::format("{}", expected));
    }

    void sameBits(std::string_view attribute, double found, double expected) const {
        // NaN must stay NaN.
        if (found != expected && !(std::isnan(found) && std::isnan(expected)))
            differ(attribute, shortestText(found), shortestText(expected));
    }

    /// What a number type of extra bytes holds at most, as values; nothing for floating-point numbers.
    struct Range {
        double lowest;
        double highest;
    };
    [[nodiscard]] static std::optional<Range> rangeOf(const Sheaf::FieldEncoding& encoding) {
        std::optional<Range> range;
        const auto take = [&](auto zero) {
            using Limits = std::numeric_limits<decltype(zero)>;
            if (*encoding.type == typeid(zero))
                range = {static_cast<double>(Limits::lowest()), static_cast<double>(Limits::max())};
        };
        take(static_cast<unsigned char>(0));
        take(static_cast<signed char>(0));
        take(static_cast<unsigned short>(0));
        take(static_cast<short>(0));
        take(0U);
        take(0);
        take(0ULL);
        take(0LL);
        return range;
    }

    void compareExtra(const Sheaf::FieldEncoding& encoding, const std::optional<Range>& range,
                      const LasColumns::Extra& column, std::size_t i, std::optional<double> expected) const {
        const std::optional<double> found = column.value(i);
        const auto what = [&] { return fmt::format("extra bytes \"{}\"", encoding.name); };
        if (!found)
            fail(name_, "it has no " + what());
        const double scale = encoding.scale.value_or(1.0);
        const double offset = encoding.offset.value_or(0.0);
        // Bytes that nothing was put into are zeros.
        double value = expected.value_or(offset);
        if (std::isnan(value)) {
            if (encoding.noData && !std::isnan(*encoding.noData))
                value = static_cast<double>(*encoding.noData) * scale + offset;
            else if (range)
                value = offset;
        }
        double tolerance = 8 * std::numeric_limits<double>::epsilon() * (std::abs(value) + std::abs(offset));
        if (range) {
            const double ends[] = {range->lowest * scale + offset, range->highest * scale + offset};
            value = std::clamp(value, std::min(ends[0], ends[1]), std::max(ends[0], ends[1]));
            tolerance += std::abs(scale) * 0.5 * (1 + 1e-6);
        } else if (*encoding.type == typeid(float)) {
            tolerance +=
                std::abs(value - offset) * static_cast<double>(std::numeric_limits<float>::epsilon());
        }
        // The reader makes some values floats.
        if (column.holdsFloats())
            tolerance += std::abs(value) * static_cast<double>(std::numeric_limits<float>::epsilon());
        if (std::isnan(*found) ? !std::isnan(value)
                               : *found != value && !(std::abs(*found - value) <= tolerance))
            differ(what(), shortestText(*found), shortestText(value));
    }

    void comparePosition(const PhysicalSpace::point& expected, const PhysicalSpace::point& found) {
        box_.expand(found);
        near(0, found.x, expected.x);
        near(1, found.y, expected.y);
        near(2, found.z, expected.z);
    }

    void near(std::size_t axis, double found, double expected) const {
        // Half a step; the sum of offset and steps is rounded at the magnitude of the coordinate.
        const double tolerance = statement_.step[axis] * 0.5 * (1 + 1e-6) +
                                 8 * std::numeric_limits<double>::epsilon() * std::abs(expected);
        if (!(std::abs(found - expected) <= tolerance))
            differ(axisNames[axis], coordinateText(found), coordinateText(expected));
    }

    [[noreturn]] void differ(std::string_view attribute, const std::string& found,
                             const std::string& expected) const {
        fail(name_, fmt::format("point {}: {} is {} in the file, {} was expected", number_, attribute, found,
                                expected));
    }

    void compareAxis(std::size_t axis, const ConvLib::StoredAxis& announced, double foundLower,
                     double foundUpper) const {
        const double stated[] = {statement_.lower[axis], statement_.upper[axis]};
        const bool isEmpty = announced.lower > announced.upper;
        const double lower = isEmpty ? 0 : announced.lower;
        const double upper = isEmpty ? 0 : announced.upper;
        const double tolerance = announced.step + 8 * std::numeric_limits<double>::epsilon() *
                                                      std::max(std::abs(lower), std::abs(upper));
        const bool fitsBox =
            std::abs(stated[0] - lower) <= tolerance && std::abs(stated[1] - upper) <= tolerance;
        const bool holdsPoints = foundLower > foundUpper ||
                                 (foundLower >= stated[0] - tolerance && foundUpper <= stated[1] + tolerance);
        if (!fitsBox || !holdsPoints)
            fail(name_,
                 fmt::format("the header states {0} from {1} to {2}, its points reach from {3} to {4}, "
                             "the exported ones from {5} to {6}",
                             axisNames[axis], coordinateText(stated[0]), coordinateText(stated[1]),
                             coordinateText(foundLower), coordinateText(foundUpper), coordinateText(lower),
                             coordinateText(upper)));
    }

    const std::string& name_;
    const LasPlan& plan_;
    const LasSettings& settings_;
    const LasStatement& statement_;
    /// For each of the plan's extras its place among those of the file, and what its type holds.
    struct Extra {
        std::size_t place;
        std::optional<Range> range;
    };
    std::vector<Extra> extras_;
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
    if (const std::uint64_t found = ReadBack(file.path, options).plan().points(); found != file.points)
        fail(file.name,
             fmt::format("it contains {}, {} were written", counted(found, "point"), grouped(file.points)));
}

std::vector<std::string> LasVerification::compare(const File& file, const LasPlan& plan,
                                                  const LasRecorder::File& written) const {
    const LasStatement statement = LasStatement::read(file.path);
    const unsigned pointFormat = pointFormatOf(settings_, plan);
    if (statement.versionMinor != static_cast<unsigned>(settings_.version) ||
        statement.pointFormat != pointFormat)
        fail(file.name,
             fmt::format("it is LAS 1.{}, point format {}; LAS 1.{}, point format {} was expected",
                         statement.versionMinor, statement.pointFormat, settings_.version, pointFormat));
    ConvLib::ReadOptions options;
    // Small compared with the fragments of the input.
    options.FragmentPoints = 100'000ULL * Anchor::workerCount(workers.get());
    options.Workers = workers;
    options.Tick = tick;
    const ReadBack readBack(file.path, options);
    Comparison comparison(file.name, plan, settings_, statement, readBack.plan());
    comparison.compareAxes(written.axes);
    Points points(readBack.plan());
    LasExpectation expectation(plan, settings_, statement.offset);
    std::uint64_t number = 0;
    const Comparison nothing = comparison;
    // Points of a run from one place of the fragment on, in pieces side by side.
    const auto compareRun = [&](const Points::Run& run, std::size_t from) {
        constexpr std::size_t pieceSize = 10'000;
        struct Piece {
            LasExpectation expectation;
            Comparison comparison;
        };
        std::vector<Piece> pieces((run.count + pieceSize - 1) / pieceSize, {expectation, nothing});
        Anchor::runPieces(workers.get(), pieces.size(), [&](std::size_t place) {
            Piece& piece = pieces[place];
            const std::size_t begin = place * pieceSize;
            const std::size_t end = std::min(begin + pieceSize, run.count);
            piece.expectation.skipTo(from + begin);
            for (std::size_t i = begin; i < end; ++i)
                piece.comparison.compare(number + i + 1, piece.expectation.point(from + i), run.columns,
                                         run.first + i);
        });
        for (const Piece& piece : pieces)
            comparison.add(piece.comparison);
        expectation.skipTo(from + run.count);
        number += run.count;
    };
    for (const LasPlan::Fragment* const fragment : written.fragments) {
        if (beginPass)
            beginPass(fragment->points);
        expectation.take(LasColumns::load(plan, *fragment));
        // Of chosen points, the plan states the most that there can be; now that the arrays are there, it is known.
        const auto extents = fragment->positions->extents();
        const std::uint64_t count =
            std::min(fragment->points, extents ? extents->elementCount().value_or(0) : 0);
        for (std::uint64_t done = 0; done < count;) {
            const Points::Run run = points.next(count - done);
            if (run.count == 0)
                fail(file.name, fmt::format("it ends after {}", counted(number, "point")));
            compareRun(run, static_cast<std::size_t>(done));
            done += run.count;
        }
        expectation.take({});
    }
    if (points.next(1).count > 0)
        fail(file.name, fmt::format("it continues after {}", counted(number, "point")));
    comparison.compareExtent(written.axes);
    return comparison.returnCountDifferences();
}

} // namespace Tidewatch
