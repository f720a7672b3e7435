// SPDX-License-Identifier: Apache-2.0
#include "las/LasBox.hpp"

#include "anchor/Console.hpp"
#include "las/fileIsComplete.hpp"
#include "las/lasHeader.hpp"
#include "las/lasValues.hpp"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <set>
#include <utility>

#ifdef TIDEWATCH_LASLIB_HALTS
#if __has_include(<lasmessage.hpp>)
#include <lasmessage.hpp>
#endif
#endif

namespace ExportLib {

namespace {

// Several exporters may run in threads of their own.
std::atomic<int> boxCount{0};

std::array<double, 3> cornerOf(const Geom::PhysicalSpace::point& corner, const Geom::BoundingBox& box) {
    const auto orZero = [](double value, double low, double high) { return low <= high ? value : 0.0; };
    return {orZero(corner.x, box.lower().x, box.upper().x), orZero(corner.y, box.lower().y, box.upper().y),
            orZero(corner.z, box.lower().z, box.upper().z)};
}

} // namespace

LasBox::LasBox(int day, int year, const Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>& box,
               const Sheaf::Representation& representation, std::string fileName, const int& version,
               const int& pointSourceID, Anchor::StrongPtr<Sheaf::Grid> grid, Report report)
    : number_(boxCount++),
      version_(version),
      fileName_(std::move(fileName)),
      pointSourceID_(pointSourceID),
      grid_(std::move(grid)),
      report_(std::move(report)) {
#ifdef TIDEWATCH_LASLIB_HALTS
    // Releases that have this switch would otherwise end the host's process with their first error.
    halt_on_error(false);
#endif
    if (!setVersion(header_, version_))
        return;
    setExtent(header_, cornerOf(box->lower(), *box), cornerOf(box->upper(), *box));
    setIdentification(header_);
    setCreationDate(header_, day, year, std::time(nullptr));
    if (representation.findField("RGB"))
        addColor(header_);
    addAttributes();
    point_.init(&header_, header_.point_data_format, header_.point_data_record_length, &header_);
    opener_.set_file_name(fileName_.c_str());
    writer_.reset(opener_.open(&header_));
    if (!writer_)
        failed_ = true;
}

void LasBox::addAttributes() {
    const auto skeleton = grid_->skeletons().findVertices(-1);
    if (!skeleton)
        return;
    grid_->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0);
    std::set<std::string> names;
    skeleton->iterate_fields([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        names.insert(id.name());
        return true;
    });
    // The name alone decides. Whether a field may be used, or can be, is seen only when points are written;
    // the attribute is then there with zeros.
    for (const std::string& name : names) {
        if (name == "Reflectance")
            reflectanceStart_ = addReflectance(header_);
        else if (name == "Amplitude")
            amplitudeStart_ = addAmplitude(header_);
        else
            continue;
        hasAttributes_ = true;
    }
}

LasBox::~LasBox() {
    finish();
}

void LasBox::finish() noexcept {
    std::uint64_t bytes = 0;
    if (writer_) {
        setPointCounts(header_, total_, pointsByReturn_);
        const bool updated = writer_->update_header(&header_, false, version_ == 4);
        // laslib/ turns the sign around where it knows of an output error.
        const I64 closed = writer_->close(true);
        writer_.reset();
        bytes = static_cast<std::uint64_t>(closed < 0 ? -closed : closed);
        failed_ = failed_ || !updated || closed < 0;
    } else if (!failed_) {
        return;
    }
    try {
        failed_ = failed_ || !fileIsComplete(fileName_, bytes, header_, total_);
        report_({fileName_, bytes, total_, failed_});
    } catch (...) {
        // No memory for the record: the host sees a file that nobody has vouched for.
    }
}

void LasBox::writePoints(std::uint32_t count) {
    // A box whose file could not be made has nowhere to write to; its failure is on record already.
    if (!writer_)
        return;
    total_ += count;
    if (!slots_.returnNumber)
        pointsByReturn_[0] += count;
    const std::uint64_t violations = version_ == 4 ? writePointsOf<true>(count) : writePointsOf<false>(count);
    if (violations != 0)
        Anchor::Console() << "Warning: For " << std::to_string(violations)
                          << " points the return number exceeds the las-specs! (greater than 5 or 15 if "
                             "extended)";
}

template <bool isExtended>
std::uint64_t LasBox::writePointsOf(std::uint32_t count) {
    // The older formats hold 3 bits, so 6 and 7 pass although the format's own limit, which the warning
    // names, is 5. Deliberate: sensors that count to 7 keep their numbers.
    constexpr unsigned returnLimit = isExtended ? 15 : 7;

    const auto positions = elements(slots_.positions);
    const auto classification = elements(slots_.classification);
    const auto intensity = elements(slots_.intensity);
    const auto returnNumber = elements(slots_.returnNumber);
    const auto numberOfReturns = elements(slots_.numberOfReturns);
    const auto edgeOfFlightLine = elements(slots_.edgeOfFlightLine);
    const auto scanDirectionFlag = elements(slots_.scanDirectionFlag);
    const auto userData = elements(slots_.userData);
    const auto scanAngleRank = elements(slots_.scanAngleRank);
    const auto scanAngle = elements(slots_.scanAngle);
    const auto gpsTime = elements(slots_.gpsTime);
    const auto rgb = elements(slots_.rgb);
    using Shorts = std::span<const unsigned short>;
    using Floats = std::span<const float>;
    const auto pointSourceID = pointSourceID_ > 0 ? Shorts() : elements(slots_.pointSourceID);
    // A renamed field fills a slot although the header may not have the attribute; there is no place to store
    // its values then.
    const auto reflectance = reflectanceStart_ >= 0 ? elements(slots_.reflectance) : Floats();
    const auto amplitude = amplitudeStart_ >= 0 ? elements(slots_.amplitude) : Shorts();
    const auto amplitudeFloat =
        amplitudeStart_ >= 0 && !slots_.amplitude ? elements(slots_.amplitudeFloat) : Floats();

    std::uint64_t violations = 0;
    const auto limited = [&](unsigned number) {
        violations += number > returnLimit ? 1U : 0U;
        return std::min(number, returnLimit);
    };

    const LASquantizer quantizer = static_cast<const LASquantizer&>(header_);
    LASpoint& point = point_;
    LASwriter& writer = *writer_;
    bool accepted = true;

    // What shares a byte is stored together: one by one, each would wait for the byte that the one before it
    // stored.
    unsigned ownReturn = isExtended ? point.extended_return_number : point.return_number;
    unsigned allReturns = isExtended ? point.extended_number_of_returns : point.number_of_returns;
    unsigned direction = point.scan_direction_flag;
    unsigned edge = point.edge_of_flight_line;

    if (pointSourceID_ > 0)
        point.point_source_ID = static_cast<U16>(pointSourceID_);
    for (std::size_t i = 0; i < count; ++i) {
        if (i < positions.size()) {
            const Geom::PhysicalSpace::point& p = positions[i];
            point.X = quantizedCoordinate(p.x, quantizer.x_offset, quantizer.x_scale_factor);
            point.Y = quantizedCoordinate(p.y, quantizer.y_offset, quantizer.y_scale_factor);
            point.Z = quantizedCoordinate(p.z, quantizer.z_offset, quantizer.z_scale_factor);
        }
        if (i < classification.size()) {
            if constexpr (isExtended)
                point.extended_classification = classification[i];
            else
                point.classification = classification[i] & 0x1F;
        }
        if (i < intensity.size())
            point.intensity = intensity[i];
        if (i < returnNumber.size()) {
            ownReturn = limited(returnNumber[i]);
            if (ownReturn != 0)
                ++pointsByReturn_[ownReturn - 1];
        }
        if (i < numberOfReturns.size())
            allReturns = limited(numberOfReturns[i]);
        if (i < scanDirectionFlag.size())
            direction = scanDirectionFlag[i];
        if (i < edgeOfFlightLine.size())
            edge = edgeOfFlightLine[i];
        if constexpr (isExtended) {
            point.extended_return_number = ownReturn & 0xF;
            point.extended_number_of_returns = allReturns & 0xF;
        } else {
            point.return_number = ownReturn & 0x7;
            point.number_of_returns = allReturns & 0x7;
        }
        point.scan_direction_flag = direction & 1;
        point.edge_of_flight_line = edge & 1;
        if (i < scanAngle.size())
            point.extended_scan_angle = scanAngle[i];
        if (i < scanAngleRank.size()) {
            point.scan_angle_rank = static_cast<I8>(scanAngleRank[i]);
            // Stored as it is, although the wider field counts in steps of 0.006 degrees: files have always
            // been that way, and what reads them expects whole degrees there. It wins over a finer angle.
            if constexpr (isExtended)
                point.extended_scan_angle = scanAngleRank[i];
        }
        if (i < userData.size())
            point.user_data = userData[i];
        if (i < pointSourceID.size())
            point.point_source_ID = pointSourceID[i];
        if (i < gpsTime.size())
            point.gps_time = gpsTime[i];
        if (i < rgb.size()) {
            // 0 to 255 as they are, although LAS asks for the full 16 bits: viewers in use take them so.
            point.rgb[0] = rgb[i].red();
            point.rgb[1] = rgb[i].green();
            point.rgb[2] = rgb[i].blue();
        }

        accepted = writer.write_point(&point) && accepted;

        // Only now, so each point is written with the Reflectance and Amplitude of the one before it, and the
        // first of a file with zeros. Files of the past are shifted in the same way, and programs that
        // compensate for it must not shift twice: keep the order.
        if (i < reflectance.size())
            point.set_attribute(reflectanceStart_, rawReflectance(reflectance[i]));
        if (i < amplitude.size())
            point.set_attribute(amplitudeStart_, U16{amplitude[i]});
        else if (i < amplitudeFloat.size())
            point.set_attribute(amplitudeStart_, rawAmplitude(amplitudeFloat[i]));
        if (hasAttributes_)
            writer.update_inventory(&point);
    }
    failed_ = failed_ || !accepted;
    return violations;
}

} // namespace ExportLib
