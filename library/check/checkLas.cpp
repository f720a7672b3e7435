// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkLas.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/layout.hpp"
#include "formats/las/records.hpp"
#include "library/check/LasPointSurvey.hpp"
#include "library/check/checkSystem.hpp"
#include "library/check/kinds.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"
#include "readers/las/LasFile.hpp"
#include "readers/las/LasReader.hpp"
#include "readers/las/PointDecoder.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Las::ExtraAttribute;
using Las::LasFile;
using Las::LasHeader;
using Severity = CheckFinding::Severity;

namespace Encoding = Formats::Las::GlobalEncoding;

constexpr std::array axisNames{"x", "y", "z"};

std::string pointPlace(std::uint64_t point) {
    return fmt::format("point {}", point);
}

/// The kind of an error of the reader, by the object that its message names.
std::string_view kindOf(const CheckReport& report, std::string_view message) {
    const std::string prefix = report.file() + ": ";
    if (message.starts_with(prefix))
        message.remove_prefix(prefix.size());
    constexpr std::pair<std::string_view, std::string_view> objects[] = {
        {"header", Kind::header},
        {"variable length record", Kind::records},
        {"extended variable length record", Kind::records},
        {"extra bytes", Kind::extraBytes},
        {"compression record", Kind::compression},
        {"chunk", Kind::compression},
        {"point", Kind::points}};
    for (const auto& [object, kind] : objects) {
        if (message.starts_with(object))
            return kind;
    }
    return Kind::structure;
}

class LasCheck {
public:
    LasCheck(CheckReport& report, std::shared_ptr<const LasFile> file)
        : report_(report),
          file_(std::move(file)),
          header_(file_->header()),
          isOwn_(header_.generatingSoftware == "Tidewatch"),
          survey_(header_) {}

    void run(const Anchor::StrongPtr<Progress>& progress) {
        report_.setFormat(fmt::format("LAS 1.{}, point format {}{}", header_.versionMinor,
                                      header_.pointFormat, header_.compressed ? ", compressed" : ""));
        checkHeader();
        checkExtraBytes();
        checkUnusedBytes();
        checkReferenceSystem();
        if (!decode(progress))
            return;
        // In this order: earlier checks set isPlain_, which decides the severity of later findings.
        checkScanAngles();
        checkShift();
        checkColors();
        checkCountsByReturn();
        checkBox();
        checkClasses();
        checkReturns();
        checkTimes();
    }

private:
    /// A deliberate quirk of the exporters: a warning if the file is known to have such quirks, else a note.
    void quirk(std::string_view kind, std::string place, std::string message) {
        report_.add({std::string(kind), isPlain_ ? Severity::Warning : Severity::Note, std::move(place),
                     std::move(message), 1});
    }

    [[nodiscard]] bool isExtended() const noexcept {
        return Formats::Las::isExtendedFormat(header_.pointFormat);
    }

    void checkHeader() {
        checkCounts();
        checkCreationDay();
        constexpr unsigned knownBits = Encoding::adjustedGpsTime | Encoding::waveformsInside |
                                       Encoding::waveformsOutside | Encoding::syntheticReturnNumbers |
                                       Encoding::wellKnownText;
        if (const unsigned others = header_.globalEncoding & ~knownBits; others != 0)
            report_.warning(Kind::globalEncoding, "header",
                            fmt::format("the reserved bits {:#x} of the global encoding are set", others));
        for (std::size_t axis = 0; axis < axisNames.size(); ++axis)
            checkStep(axis);
    }

    void checkCounts() {
        if (header_.versionMinor < 4)
            return;
        // The reader has already checked that the two do not contradict each other.
        if (header_.longPointCount == 0 && header_.legacyPointCount != 0)
            report_.fault(Kind::pointCount, "header",
                          fmt::format("the number of points is stated as 0 and, in the legacy field, as {}",
                                      header_.legacyPointCount));
    }

    void checkCreationDay() {
        const unsigned day = header_.creationDay;
        const unsigned year = header_.creationYear;
        if (year == 0 && day == 0)
            return;
        const bool isLeapYear = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        const unsigned days = isLeapYear ? 366 : 365;
        if (day == 0 || day > days)
            report_.warning(Kind::creationDay, "header",
                            fmt::format("the creation day is {} of {}; days count from 1 to {}{}", day, year,
                                        days, isOwn_ && day == 0 ? "; only --plain counts from 0" : ""));
        isPlain_ = isPlain_ || (isOwn_ && day == 0);
    }

    void checkStep(std::size_t axis) {
        const double step = header_.scale[axis];
        const double offset = header_.offset[axis];
        if (step < 0) {
            report_.warning(Kind::coordinateStep, "header",
                            fmt::format("the {} scale factor of {} is negative", axisNames[axis], step));
            return;
        }
        const double next = std::nextafter(std::abs(offset), std::numeric_limits<double>::infinity());
        if (next - std::abs(offset) > step)
            report_.warning(Kind::coordinateStep, "header",
                            fmt::format("{} has steps of {}, which double precision cannot resolve at "
                                        "its offset of {}",
                                        axisNames[axis], step, offset));
    }

    void checkExtraBytes() {
        std::uint32_t described = 0;
        std::set<std::string> names;
        for (const ExtraAttribute& attribute : file_->extraAttributes()) {
            described += attribute.size;
            if (attribute.component <= 1 && (attribute.name.empty() || !names.insert(attribute.name).second))
                report_.warning(Kind::extraBytesNames, fmt::format("extra bytes, entry {}", attribute.entry),
                                attribute.name.empty() ? std::string("it has no name")
                                                       : fmt::format("there is another of the name \"{}\"",
                                                                     Anchor::printable(attribute.name)));
            const bool isOfContract =
                isOwn_ && attribute.type == ExtraAttribute::Type::UInt16 &&
                (attribute.name == "BSG_Reflectance" || (attribute.name == "Amplitude" && attribute.scale));
            if (isOfContract) {
                survey_.watch(attribute.offset);
                watched_.push_back(attribute.name);
            }
        }
        const std::uint32_t extra = header_.extraByteCount();
        if (described >= extra)
            return;
        isPlain_ = isPlain_ || isOwn_;
        quirk(Kind::undescribedBytes, "points",
              fmt::format("nothing describes the last {} of their {} bytes{}", extra - described,
                          header_.recordLength,
                          isOwn_ ? "; tidewatch las without --plain writes none of that kind" : ""));
    }

    /// Bytes after uncompressed points; for compressed ones, the reader has checked where they end.
    void checkUnusedBytes() {
        if (header_.compressed || header_.versionMinor == 3 || header_.layout().wavePacket != 0)
            return;
        const std::uint64_t end = header_.pointOffset + header_.pointCount * header_.recordLength;
        const std::uint64_t next = header_.evlrCount != 0 ? header_.evlrOffset : file_->open().size();
        if (next > end)
            report_.warning(Kind::unusedBytes, fmt::format("byte {}", end),
                            fmt::format("{} after the {} that the header states are unused",
                                        counted(next - end, "byte"), counted(header_.pointCount, "point")));
    }

    void checkReferenceSystem() {
        const auto has = [&](std::uint16_t id) {
            const auto& records = file_->userRecords();
            return std::any_of(records.begin(), records.end(), [&](const LasFile::UserRecord& record) {
                return record.userId == Formats::Las::projectionUser && record.recordId == id;
            });
        };
        const bool hasText = has(Formats::Las::wellKnownTextId);
        const bool hasKeys = has(Formats::Las::geoKeyDirectoryId);
        const bool saysText = (header_.globalEncoding & Encoding::wellKnownText) != 0;
        if (isExtended() && (hasText || hasKeys) && !saysText)
            report_.warning(Kind::systemForm, "header",
                            fmt::format("points of format {} want the coordinate reference system as "
                                        "well-known text; the header does not say that it is",
                                        header_.pointFormat));
        else if (saysText && !hasText && hasKeys)
            report_.warning(Kind::systemForm, "header",
                            "it says that the coordinate reference system is well-known text; there are only "
                            "GeoTIFF keys");
        else if (!saysText && hasText && !hasKeys)
            report_.warning(Kind::systemForm, "header",
                            "it says that the coordinate reference system is GeoTIFF keys; there is only "
                            "well-known text");
        try {
            ConvLib::ReadOptions options;
            options.FragmentPoints = std::numeric_limits<std::uint64_t>::max();
            const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
            static_cast<void>(LasReader().read(*bundle, report_.file(), options));
            completeSystems(*bundle);
            checkSystems(report_, *bundle);
        } catch (const Anchor::Error& error) {
            report_.faultOf(Kind::structure, error.what());
        }
    }

    bool decode(const Anchor::StrongPtr<Progress>& progress) {
        const std::uint64_t count = header_.pointCount;
        if (progress) {
            progress->begin("checking " + report_.file(), static_cast<double>(count), "points");
            progress->piece(0, static_cast<double>(count));
        }
        const auto tick = [&](std::uint64_t done) {
            if (progress)
                progress->tick(report_.file(), static_cast<double>(done) / static_cast<double>(count));
        };
        try {
            Las::PointDecoder decoder(file_);
            decoder.decode(
                0, count, [&](std::span<const Las::Point> points) { survey_.take(points); }, tick);
        } catch (const Anchor::FormatError& error) {
            report_.faultOf(kindOf(report_, error.what()), error.what());
            return false;
        } catch (const Anchor::FileError& error) {
            report_.faultOf(Kind::file, error.what());
            return false;
        }
        return true;
    }

    void checkScanAngles() {
        if (survey_.anglesBeyondRange.count != 0)
            report_.warning(Kind::scanAngles, pointPlace(survey_.anglesBeyondRange.first),
                            fmt::format("scan angles reach from {} to {}; {} is the most",
                                        survey_.angles.lowest, survey_.angles.highest,
                                        isExtended() ? "30000 steps of 0.006 degrees" : "90 degrees"),
                            survey_.anglesBeyondRange.count);
        const auto& angles = survey_.angles;
        constexpr int degrees = 90;
        if (!isExtended() || angles.isEmpty() || (angles.lowest == 0 && angles.highest == 0) ||
            angles.lowest < -degrees || angles.highest > degrees)
            return;
        isPlain_ = isPlain_ || isOwn_;
        report_.warning(
            Kind::scanAngleUnit, "points",
            fmt::format("scan angles from {} to {} look like whole degrees, in a field that counts "
                        "in steps of 0.006 degrees{}",
                        angles.lowest, angles.highest,
                        isOwn_ ? "; tidewatch las without --plain converts them" : ""));
    }

    void checkShift() {
        if (!survey_.isLate())
            return;
        // A stored reflectance of 0 means -25, which is below any real one; an amplitude of 0 may be real.
        isPlain_ =
            isPlain_ || std::find(watched_.begin(), watched_.end(), "BSG_Reflectance") != watched_.end();
        quirk(
            Kind::shiftedAttributes, "points",
            fmt::format("{}: the first point has zeros, as where each point carries the values of the point "
                        "before; tidewatch las without --plain gives each point its own",
                        joined(watched_)));
    }

    void checkColors() {
        if (survey_.colors == 0 || survey_.colors > std::numeric_limits<std::uint8_t>::max())
            return;
        quirk(
            Kind::colorDepth, "points",
            fmt::format("colours stay within 0 to 255, where LAS wants 16 bits{}",
                        isOwn_ ? "; tidewatch las without --plain stretches those of fields of 8 bits" : ""));
    }

    void checkCountsByReturn() {
        const auto& stated = header_.countsByReturn;
        for (std::size_t i = 0; i < stated.size(); ++i) {
            const std::uint64_t found = survey_.byReturn[i + 1];
            // Many writers count points without a return number as first returns.
            const bool isFine = stated[i] == found || (i == 0 && stated[i] == found + survey_.byReturn[0]);
            if (isFine)
                continue;
            const std::string message = fmt::format("{} of return {} are stated, there are {}",
                                                    counted(stated[i], "point"), i + 1, grouped(found));
            if (isOwn_)
                report_.warning(Kind::countsByReturn, "header",
                                message + "; tidewatch las without --plain counts the points as stored");
            else
                report_.fault(Kind::countsByReturn, "header", message);
        }
    }

    void checkBox() {
        if (survey_.points == 0)
            return;
        for (std::size_t axis = 0; axis < axisNames.size(); ++axis) {
            const double ends[] = {header_.coordinate(axis, survey_.stored[axis].lowest),
                                   header_.coordinate(axis, survey_.stored[axis].highest)};
            const double lower = std::min(ends[0], ends[1]);
            const double upper = std::max(ends[0], ends[1]);
            const double statedLower = header_.minimum[axis];
            const double statedUpper = header_.maximum[axis];
            // Headers are often computed from coordinates before rounding.
            const double tolerance =
                std::abs(header_.scale[axis]) +
                8 * std::numeric_limits<double>::epsilon() * std::max(std::abs(lower), std::abs(upper));
            const std::string message =
                fmt::format("{} is stated from {} to {}, its points reach from {} to {}", axisNames[axis],
                            coordinateText(statedLower), coordinateText(statedUpper), coordinateText(lower),
                            coordinateText(upper));
            if (!(statedLower - tolerance <= lower && upper <= statedUpper + tolerance))
                report_.fault(Kind::box, "header", message);
            else if (statedLower < lower - tolerance || statedUpper > upper + tolerance)
                report_.warning(Kind::looseBox, "header", message);
        }
    }

    void checkClasses() {
        // "ASPRS Standard Point Classes": those between the defined and the user-definable ones are reserved.
        const unsigned firstReserved = isExtended() ? 23 : 13;
        const unsigned firstForUsers = isExtended() ? 64 : 32;
        for (unsigned number = firstReserved; number < firstForUsers; ++number)
            noteClass(number, "is reserved");
        if (isExtended())
            noteClass(12, "is reserved: overlap is a separate flag");
    }

    void noteClass(unsigned number, std::string_view why) {
        if (const auto& found = survey_.classes[number]; found.count != 0)
            report_.note(Kind::classes, pointPlace(found.first),
                         fmt::format("class {} {} in points of format {}", number, why, header_.pointFormat),
                         found.count);
    }

    void checkReturns() {
        if (const auto& none = survey_.returnsOfNone; none.count != 0)
            report_.note(Kind::returnNumbers, pointPlace(none.first),
                         "the return number is 0; they count from 1", none.count);
        if (const auto& beyond = survey_.returnsBeyondOwn; beyond.count != 0)
            report_.note(Kind::returnNumbers, pointPlace(beyond.first),
                         "the return number is above the number of returns", beyond.count);
    }

    void checkTimes() {
        if (survey_.timesNotFinite.count != 0) {
            report_.warning(Kind::gpsTime, pointPlace(survey_.timesNotFinite.first),
                            "the GPS time is not a finite number", survey_.timesNotFinite.count);
            return;
        }
        if ((header_.globalEncoding & Encoding::adjustedGpsTime) != 0 || survey_.timesOutsideWeek.count == 0)
            return;
        constexpr double millisecond = 0.001;
        const std::string message =
            fmt::format("GPS times reach from {} to {}, and the header says that they are seconds of a week",
                        coordinateText(survey_.times.lowest, millisecond),
                        coordinateText(survey_.times.highest, millisecond));
        if (isOwn_)
            quirk(Kind::gpsTime, pointPlace(survey_.timesOutsideWeek.first),
                  message +
                      "; tidewatch las says so where its input does not say otherwise, and with --plain");
        else
            report_.warning(Kind::gpsTime, pointPlace(survey_.timesOutsideWeek.first), message,
                            survey_.timesOutsideWeek.count);
    }

    CheckReport& report_;
    std::shared_ptr<const LasFile> file_;
    const LasHeader& header_;
    /// Whether this project's exporter wrote the file.
    bool isOwn_;
    /// Whether it was certainly written without the settings that avoid the exporter's quirks.
    bool isPlain_ = false;
    LasPointSurvey survey_;
    std::vector<std::string> watched_;
};

} // namespace

void checkLas(CheckReport& report, const Anchor::StrongPtr<Progress>& progress) {
    std::shared_ptr<const LasFile> file;
    try {
        file = std::make_shared<const LasFile>(report.file());
    } catch (const Anchor::FormatError& error) {
        report.setFormat("LAS");
        report.faultOf(kindOf(report, error.what()), error.what());
        return;
    }
    LasCheck(report, std::move(file)).run(progress);
}

} // namespace Tidewatch
