// SPDX-License-Identifier: Apache-2.0
#include "las/LasBox.hpp"

#include "anchor/Console.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "formats/las/layout.hpp"
#include "las/LasPlan.hpp"
#include "las/fileIsComplete.hpp"
#include "las/lasHeader.hpp"
#include "las/lasRules.hpp"
#include "las/lasValues.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <iterator>
#include <limits>
#include <utility>

#ifdef TIDEWATCH_LASLIB_HALTS
#if __has_include(<lasmessage.hpp>)
#include <lasmessage.hpp>
#endif
#endif

namespace ExportLib {

namespace {

/// Degrees (LAS 1.4 R15, "Scan Angle" of point formats 6 to 10).
constexpr double scanAngleStep = 0.006;

// Several exporters may run in threads of their own.
std::atomic<int> boxCount{0};

std::array<double, 3> cornerOf(const Geom::PhysicalSpace::point& corner, const Geom::BoundingBox& box) {
    const auto orZero = [](double value, double low, double high) { return low <= high ? value : 0.0; };
    return {orZero(corner.x, box.lower().x, box.upper().x), orZero(corner.y, box.lower().y, box.upper().y),
            orZero(corner.z, box.lower().z, box.upper().z)};
}

/// Counts changes of values stored as 16-bit numbers.
struct ShortChanges {
    std::uint64_t wrapped = 0;
    std::uint64_t rounded = 0;
    /// The greatest change by rounding, in units of the stored number.
    double most = 0;

    void note(double value, std::uint16_t stored) noexcept {
        const double change = std::abs(value - stored);
        if (change == 0)
            return;
        // NaN counts as wrapped, too.
        if (!(change < 1)) {
            ++wrapped;
            return;
        }
        ++rounded;
        if (change > most) [[unlikely]]
            most = change;
    }
};

/// Counts points, each once even if several of its values are noted.
struct PointCount {
    std::uint64_t points = 0;
    std::size_t last = std::numeric_limits<std::size_t>::max();

    void note(std::size_t point) noexcept {
        points += point != last ? 1U : 0U;
        last = point;
    }
};

/// Counts changes of coordinates.
struct PositionChanges {
    /// In steps: smaller changes are rounding errors of floating-point arithmetic and not counted.
    static constexpr double noise = 1e-6;

    /// Points with a rounded coordinate, and points with one that does not fit or is NaN.
    std::uint64_t rounded = 0;
    std::uint64_t misfits = 0;
    /// The greatest change along each axis, in steps.
    double x = 0;
    double y = 0;
    double z = 0;

    void note(double byX, double byY, double byZ) noexcept {
        // Coordinates that fit change by at most half a step, others by 2^31 steps or more.
        const double sum = byX + byY + byZ;
        if (!(sum < 2)) {
            ++misfits;
            return;
        }
        rounded += sum > noise ? 1U : 0U;
        if (byX > x) [[unlikely]]
            x = byX;
        if (byY > y) [[unlikely]]
            y = byY;
        if (byZ > z) [[unlikely]]
            z = byZ;
    }
};

} // namespace

struct LasBox::Changes {
    PositionChanges positions;
    std::uint64_t highClasses = 0;
    PointCount highReturns;
    PointCount wideFlags;
    std::uint64_t fineAngles = 0;
    std::uint64_t wholeAngles = 0;
    ShortChanges reflectance;
    ShortChanges amplitude;
    // Counts for features beyond the contract.
    std::uint64_t roundedAngles = 0;
    double maxAngleChange = 0;
    std::uint64_t highChannels = 0;
    std::uint64_t overlaps = 0;
    std::uint64_t scannerChannels = 0;
    std::uint64_t nearInfrared = 0;
};

LasBox::LasBox(int day, int year, const Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>& box,
               const Sheaf::Representation& representation, std::string fileName, const int& version,
               const int& pointSourceID, Anchor::StrongPtr<Sheaf::Grid> grid, Host host,
               BeyondContract beyond)
    : number_(boxCount++),
      version_(version),
      fileName_(std::move(fileName)),
      pointSourceID_(pointSourceID),
      grid_(std::move(grid)),
      host_(std::move(host)),
      beyond_(std::move(beyond)) {
    least_.fill(std::numeric_limits<I32>::max());
    greatest_.fill(std::numeric_limits<I32>::min());
#ifdef TIDEWATCH_LASLIB_HALTS
    // Releases that have this switch would otherwise end the host's process on the first error.
    halt_on_error(false);
#endif
    if (!setVersion(header_, version_))
        return;
    setAxes(*box);
    setIdentification(header_);
    setCreationDate(header_, day, year, std::time(nullptr), beyond_.settings.conforming ? 1 : 0);
    if (beyond_.layout)
        addLayout();
    else
        addAttributes(representation);
    addAdditions();
    if (beyond_.settings.carry)
        addStatement();
    if (host_.observer)
        tellAxes(*box);
    point_.init(&header_, header_.point_data_format, header_.point_data_record_length, &header_);
    opener_.set_file_name(fileName_.c_str());
    errno = 0;
    writer_.reset(opener_.open(&header_));
    noteFailure(!writer_);
#ifdef TIDEWATCH_LASLIB_SIDE_BY_SIDE
    if (Anchor::Workers* const workers = host_.workers; writer_ && Anchor::workerCount(workers) > 1)
        writer_->compress_side_by_side(workers->count(), [workers](std::size_t pieces, const auto& piece) {
            Anchor::runPieces(workers, pieces, piece);
        });
#endif
}

void LasBox::setAxes(const Geom::BoundingBox& box) {
    const std::array<double, 3> lower = cornerOf(box.lower(), box);
    const std::array<double, 3> upper = cornerOf(box.upper(), box);
    const LasSettings& settings = beyond_.settings;
    if (!settings.carry && !settings.step && !settings.offset) {
        setExtent(header_, lower, upper);
        return;
    }
    const auto axes = axesFor(lower, upper, settings, grid_->statement());
    for (std::size_t i = 0; i < axes.size(); ++i) {
        const auto& [step, offset] = axes[i];
        setAxis(header_, i, step, offset, quantizedCorner(lower[i], step, offset),
                quantizedCorner(upper[i], step, offset));
    }
}

/// Applies the layout to the header.
void LasBox::addLayout() {
    const LasLayout& layout = *beyond_.layout;
    header_.point_data_format = static_cast<U8>(layout.pointFormat);
    header_.point_data_record_length = static_cast<U16>(layout.recordLength);
    if (grid_->skeletons().findVertices(-1))
        grid_->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0);
    std::vector<std::uint8_t> entries;
    const auto append = [&](const Sheaf::FieldEncoding& encoding) {
        const auto entry = Formats::Las::encodeExtraBytesEntry(encoding);
        entries.insert(entries.end(), entry.begin(), entry.end());
    };
    if (layout.amplitudeStart) {
        amplitudeStart_ = static_cast<I32>(*layout.amplitudeStart);
        append(amplitudeEncoding());
    }
    if (layout.reflectanceStart) {
        reflectanceStart_ = static_cast<I32>(*layout.reflectanceStart);
        append(reflectanceEncoding());
    }
    for (const LasPlan::ExtraBytes& extra : layout.extras) {
        append(extra.encoding);
        extras_.emplace_back(extra);
    }
    if (!entries.empty())
        addExtraBytesRecord(header_, entries);
}

/// Applies the grid's statement to the header.
void LasBox::addStatement() {
    const Sheaf::FileStatement& statement = grid_->statement();
    if (statement.fileSourceId)
        header_.file_source_ID = *statement.fileSourceId;
    if (statement.systemIdentifier) {
        std::fill(std::begin(header_.system_identifier), std::end(header_.system_identifier), '\0');
        statement.systemIdentifier->copy(header_.system_identifier, sizeof header_.system_identifier);
    }
    if (statement.gpsTime == Sheaf::FileStatement::GpsTime::Adjusted && hasGpsTime(header_))
        header_.global_encoding |= Formats::Las::GlobalEncoding::adjustedGpsTime;
    for (const Sheaf::FileRecord& record : beyond_.layout->records)
        addRecord(header_, record);
}

void LasBox::addAdditions() {
    header_.global_encoding |= beyond_.additions.headerBits;
    for (const Sheaf::FileRecord& record : beyond_.additions.records) {
        if (placeOfRecord(record, version_) != RecordPlace::Nowhere)
            addRecord(header_, record);
    }
}

void LasBox::addAttributes(const Sheaf::Representation& representation) {
    const RecordRoom room = roomOfRecords(*grid_, representation);
    if (room.colors)
        addColor(header_);
    if (!grid_->skeletons().findVertices(-1))
        return;
    grid_->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0);
    if (room.amplitude)
        amplitudeStart_ = addAmplitude(header_);
    if (room.reflectance)
        reflectanceStart_ = addReflectance(header_);
    hasAttributes_ = room.amplitude || room.reflectance;
}

void LasBox::tellAxes(const Geom::BoundingBox& box) const {
    const auto axis = [](double offset, double step, double lower, double upper) {
        using Number = std::numeric_limits<std::int32_t>;
        return ConvLib::StoredAxis{offset, step, offset + step * Number::min(), offset + step * Number::max(),
                                   lower,  upper};
    };
    const auto& lower = box.lower();
    const auto& upper = box.upper();
    host_.observer->fileBegins(fileName_, {axis(header_.x_offset, header_.x_scale_factor, lower.x, upper.x),
                                           axis(header_.y_offset, header_.y_scale_factor, lower.y, upper.y),
                                           axis(header_.z_offset, header_.z_scale_factor, lower.z, upper.z)});
}

LasBox::~LasBox() {
    finish();
}

void LasBox::finish() noexcept {
    std::uint64_t bytes = 0;
    if (writer_) {
        setPointCounts(header_, total_, pointsByReturn_);
        if (beyond_.settings.conforming)
            setStoredExtent();
        errno = 0;
        const bool updated = writer_->update_header(&header_, false, version_ == 4);
        // laslib/ negates the size if it has detected an output error.
        const I64 closed = writer_->close(true);
        writer_.reset();
        bytes = static_cast<std::uint64_t>(closed < 0 ? -closed : closed);
        noteFailure(!updated || closed < 0);
    } else if (!failed_) {
        return;
    }
    try {
        errno = 0;
        if (!failed_)
            noteFailure(!fileIsComplete(fileName_, bytes, header_, total_));
        host_.report({fileName_, bytes, total_, failed_, error_});
    } catch (...) {
        // Out of memory: the host sees a file without a record.
    }
}

void LasBox::noteFailure(bool hasFailed) noexcept {
    if (hasFailed && !failed_)
        error_ = errno;
    failed_ = failed_ || hasFailed;
}

void LasBox::clear() {
    slots_.clear();
    for (ExtraBytesWriter& extra : extras_)
        extra.clear();
}

/// Sets the extent of the coordinates as readers compute them.
void LasBox::setStoredExtent() {
    if (total_ == 0)
        return;
    const LASquantizer& q = header_;
    const double steps[]{q.x_scale_factor, q.y_scale_factor, q.z_scale_factor};
    const double offsets[]{q.x_offset, q.y_offset, q.z_offset};
    for (std::size_t i = 0; i < least_.size(); ++i)
        setAxis(header_, i, steps[i], offsets[i], least_[i] * steps[i] + offsets[i],
                greatest_[i] * steps[i] + offsets[i]);
}

void LasBox::writePoints(std::uint32_t count) {
    // The file could not be created; that has been recorded already.
    if (!writer_)
        return;
    const bool isExtended = version_ == 4;
    std::uint64_t violations = 0;
    if (host_.observer) {
        noteSupplies(count);
        violations = isExtended ? writePointsOf<true, true>(count) : writePointsOf<false, true>(count);
    } else {
        violations = isExtended ? writePointsOf<true, false>(count) : writePointsOf<false, false>(count);
    }
    if (violations != 0)
        Anchor::Console() << "Warning: For " << std::to_string(violations)
                          << " points the return number exceeds the las-specs! (greater than 5 or 15 if "
                             "extended)";
}

template <bool isExtended, bool isObserved>
std::uint64_t LasBox::writePointsOf(std::uint32_t count) {
    return beyond_.layout ? writePointsOf<isExtended, isObserved, true>(count)
                          : writePointsOf<isExtended, isObserved, false>(count);
}

template <bool isExtended, bool isObserved, bool isBeyond>
std::uint64_t LasBox::writePointsOf(std::uint32_t count) {
    // The older formats have 3 bits, so 6 and 7 are stored although the format's limit, which the warning
    // names, is 5. Deliberate: sensors that count to 7 keep their numbers.
    constexpr unsigned returnLimit = LasSettings::returnLimit(isExtended);

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
    // A renamed field may fill a slot although the header does not have the attribute; then its values are
    // not stored.
    const auto reflectance = reflectanceStart_ >= 0 ? elements(slots_.reflectance) : Floats();
    const auto amplitude = amplitudeStart_ >= 0 ? elements(slots_.amplitude) : Shorts();
    const auto amplitudeFloat =
        amplitudeStart_ >= 0 && !slots_.amplitude ? elements(slots_.amplitudeFloat) : Floats();

    [[maybe_unused]] const bool isConforming = isBeyond && beyond_.settings.conforming;
    [[maybe_unused]] const auto synthetic = elements(slots_.synthetic);
    [[maybe_unused]] const auto keyPoint = elements(slots_.keyPoint);
    [[maybe_unused]] const auto withheld = elements(slots_.withheld);
    [[maybe_unused]] const auto overlap = elements(slots_.overlap);
    [[maybe_unused]] const auto scannerChannel = elements(slots_.scannerChannel);
    [[maybe_unused]] const auto nearInfrared = elements(slots_.nearInfrared);
    [[maybe_unused]] const std::array<Shorts, 3> wideColors{elements(slots_.red), elements(slots_.green),
                                                            elements(slots_.blue)};

    std::uint64_t violations = 0;
    [[maybe_unused]] Changes changes;
    const auto limited = [&](unsigned number, [[maybe_unused]] std::size_t point) {
        if (number <= returnLimit)
            return number;
        ++violations;
        if constexpr (isObserved)
            changes.highReturns.note(point);
        return returnLimit;
    };
    const auto flag = [&](unsigned value, [[maybe_unused]] std::size_t point) {
        if constexpr (isObserved) {
            if (value > 1)
                changes.wideFlags.note(point);
        }
        return value;
    };

    const LASquantizer quantizer = static_cast<const LASquantizer&>(header_);
    LASpoint& point = point_;
    LASwriter& writer = *writer_;
    bool accepted = true;
    errno = 0;

    const auto storeAttributes = [&](std::size_t i) {
        if (i < reflectance.size()) {
            const std::uint16_t raw = rawReflectance(reflectance[i]);
            point.set_attribute(reflectanceStart_, U16{raw});
            if constexpr (isObserved)
                changes.reflectance.note((static_cast<double>(reflectance[i]) + 25) * 2184, raw);
        }
        if (i < amplitude.size()) {
            point.set_attribute(amplitudeStart_, U16{amplitude[i]});
        } else if (i < amplitudeFloat.size()) {
            const std::uint16_t raw = rawAmplitude(amplitudeFloat[i]);
            point.set_attribute(amplitudeStart_, U16{raw});
            if constexpr (isObserved)
                changes.amplitude.note(static_cast<double>(amplitudeFloat[i]), raw);
        }
    };
    [[maybe_unused]] const auto noteStored = [&] {
        const I32 stored[]{point.X, point.Y, point.Z};
        for (std::size_t axis = 0; axis < least_.size(); ++axis) {
            least_[axis] = std::min(least_[axis], stored[axis]);
            greatest_[axis] = std::max(greatest_[axis], stored[axis]);
        }
    };
    [[maybe_unused]] int overlapBit = point.extended_classification_flags >> 3;

    // Bit fields that share a byte are stored together: one by one, each store would wait for the previous
    // one.
    unsigned ownReturn = isExtended ? point.extended_return_number : point.return_number;
    unsigned allReturns = isExtended ? point.extended_number_of_returns : point.number_of_returns;
    unsigned direction = point.scan_direction_flag;
    unsigned edge = point.edge_of_flight_line;

    if (pointSourceID_ > 0)
        point.point_source_ID = static_cast<U16>(pointSourceID_);
    constexpr std::size_t block = ConvLib::BasicConverterDefs::stopInterval;
    for (std::size_t begin = 0; begin < count; begin += block) {
        if (host_.askWhetherToStop)
            host_.askWhetherToStop();
        const std::size_t end = std::min<std::size_t>(count, begin + block);
        // Counted block by block, so that the header is right even if the run is stopped here.
        total_ += end - begin;
        if (!isConforming && !slots_.returnNumber)
            pointsByReturn_[0] += static_cast<std::uint32_t>(end - begin);
        for (std::size_t i = begin; i < end; ++i) {
            if (i < positions.size()) {
                const Geom::PhysicalSpace::point& p = positions[i];
                const double x = stepsFromOffset(p.x, quantizer.x_offset, quantizer.x_scale_factor);
                const double y = stepsFromOffset(p.y, quantizer.y_offset, quantizer.y_scale_factor);
                const double z = stepsFromOffset(p.z, quantizer.z_offset, quantizer.z_scale_factor);
                point.X = quantizedSteps(x);
                point.Y = quantizedSteps(y);
                point.Z = quantizedSteps(z);
                if constexpr (isObserved)
                    changes.positions.note(std::abs(x - point.X), std::abs(y - point.Y),
                                           std::abs(z - point.Z));
            }
            if (i < classification.size()) {
                if constexpr (isExtended)
                    point.extended_classification = classification[i];
                else
                    point.classification = classification[i] & 0x1F;
                if constexpr (isObserved && !isExtended)
                    changes.highClasses += classification[i] > 0x1F ? 1U : 0U;
            }
            if (i < intensity.size())
                point.intensity = intensity[i];
            if (i < returnNumber.size()) {
                ownReturn = limited(returnNumber[i], i);
                if (!isConforming && ownReturn != 0)
                    ++pointsByReturn_[ownReturn - 1];
            }
            if (i < numberOfReturns.size())
                allReturns = limited(numberOfReturns[i], i);
            if (i < scanDirectionFlag.size())
                direction = flag(scanDirectionFlag[i], i);
            if (i < edgeOfFlightLine.size())
                edge = flag(edgeOfFlightLine[i], i);
            if constexpr (isExtended) {
                point.extended_return_number = ownReturn & 0xF;
                point.extended_number_of_returns = allReturns & 0xF;
            } else {
                point.return_number = ownReturn & 0x7;
                point.number_of_returns = allReturns & 0x7;
            }
            point.scan_direction_flag = direction & 1;
            point.edge_of_flight_line = edge & 1;
            if (i < scanAngle.size()) {
                point.extended_scan_angle = scanAngle[i];
                if constexpr (isBeyond && !isExtended) {
                    if (isConforming) {
                        const double degrees = scanAngle[i] * scanAngleStep;
                        point.scan_angle_rank =
                            static_cast<I8>(std::lround(std::clamp(degrees, -90.0, 90.0)));
                        const double change = std::abs(degrees - point.scan_angle_rank);
                        changes.roundedAngles += change > 0 ? 1U : 0U;
                        changes.maxAngleChange = std::max(changes.maxAngleChange, change);
                    }
                }
                if constexpr (isObserved && !isExtended)
                    changes.fineAngles += !isConforming && scanAngle[i] != 0 ? 1U : 0U;
            }
            if (i < scanAngleRank.size()) {
                point.scan_angle_rank = static_cast<I8>(scanAngleRank[i]);
                // Stored unchanged, although the wider field is in steps of 0.006 degrees: files have always
                // been that way, and their readers expect whole degrees. It takes precedence over a finer
                // angle.
                if constexpr (isExtended)
                    point.extended_scan_angle =
                        isConforming ? static_cast<I16>(std::lround(scanAngleRank[i] / scanAngleStep))
                                     : I16{scanAngleRank[i]};
                if constexpr (isObserved && isExtended)
                    changes.wholeAngles += !isConforming && scanAngleRank[i] != 0 ? 1U : 0U;
            }
            if (i < userData.size())
                point.user_data = userData[i];
            if (i < pointSourceID.size())
                point.point_source_ID = pointSourceID[i];
            if (i < gpsTime.size())
                point.gps_time = gpsTime[i];
            if (i < rgb.size()) {
                // 0 to 255 unchanged, although LAS requires the full 16 bits: viewers in use expect that.
                point.rgb[0] = rgb[i].red();
                point.rgb[1] = rgb[i].green();
                point.rgb[2] = rgb[i].blue();
                if constexpr (isBeyond) {
                    // LAS 1.4 R15, "Point Data Record Format 2": values of 8 bits are multiplied by 256.
                    if (isConforming) {
                        for (U16* const channel : {&point.rgb[0], &point.rgb[1], &point.rgb[2]})
                            *channel = static_cast<U16>(*channel * 256U);
                    }
                }
            }
            if constexpr (isBeyond) {
                for (std::size_t channel = 0; channel < wideColors.size(); ++channel) {
                    if (i < wideColors[channel].size())
                        point.rgb[channel] = wideColors[channel][i];
                }
                if (i < nearInfrared.size()) {
                    point.rgb[3] = nearInfrared[i];
                    changes.nearInfrared += nearInfrared[i] != 0 ? 1U : 0U;
                }
                if (i < synthetic.size())
                    point.synthetic_flag = flag(synthetic[i], i) & 1;
                if (i < keyPoint.size())
                    point.keypoint_flag = flag(keyPoint[i], i) & 1;
                if (i < withheld.size())
                    point.withheld_flag = flag(withheld[i], i) & 1;
                if (i < overlap.size())
                    changes.overlaps += flag(overlap[i], i) & 1;
                if (i < scannerChannel.size()) {
                    changes.scannerChannels += scannerChannel[i] != 0 ? 1U : 0U;
                    changes.highChannels += scannerChannel[i] > 3 ? 1U : 0U;
                }
                if constexpr (isExtended) {
                    if (i < overlap.size())
                        overlapBit = overlap[i] & 1;
                    if (i < scannerChannel.size())
                        point.extended_scanner_channel = scannerChannel[i] & 3;
                    // Writers take three of the flags from the older fields, and compressors need both to be
                    // equal.
                    point.extended_classification_flags = (point.synthetic_flag | point.keypoint_flag << 1 |
                                                           point.withheld_flag << 2 | overlapBit << 3) &
                                                          0xF;
                }
                for (ExtraBytesWriter& extra : extras_) {
                    if (i < extra.size())
                        extra.put(i, point.extra_bytes);
                }
                if (isConforming) {
                    storeAttributes(i);
                    if (ownReturn != 0)
                        ++pointsByReturn_[ownReturn - 1];
                    noteStored();
                }
            }

            accepted = writer.write_point(&point) && accepted;

            // Only now, so each point is written with the Reflectance and Amplitude of the previous one, and
            // the first of a file with zeros. Existing files are shifted in the same way, and programs
            // compensate for that: keep the order.
            if (!isConforming)
                storeAttributes(i);
            if (hasAttributes_)
                writer.update_inventory(&point);
        }
        noteFailure(!accepted);
    }
    if constexpr (isObserved) {
        // A copy: passing a reference to `changes` would keep its members out of registers in the loop as
        // well.
        const Changes result = changes;
        tell(result, count);
    }
    return violations;
}

void LasBox::noteSupplies(std::uint32_t count) {
    const auto note = [&](std::string_view attribute, std::size_t elements) {
        Supply& supply = supplies_[std::string(attribute)];
        const std::uint64_t values = std::min<std::uint64_t>(elements, count);
        supply.values += values;
        supply.surplus += elements - values;
    };
    slots_.forEachFilled([&](std::string_view attribute, std::size_t elements) {
        if (elements != 0 && hasRoomFor(attribute))
            note(attribute, elements);
    });
    for (const ExtraBytesWriter& extra : extras_) {
        if (extra.size() != 0 && extra.description().component == 0)
            note(extra.description().field, extra.size());
    }
}

double LasBox::stepOf(std::size_t axis) const noexcept {
    const double steps[]{header_.x_scale_factor, header_.y_scale_factor, header_.z_scale_factor};
    return steps[axis];
}

/// Whether the records store values of an attribute.
bool LasBox::hasRoomFor(std::string_view attribute) const {
    if (attribute == "GPSTime")
        return hasGpsTime(header_);
    if (attribute == "RGB")
        return hasColor(header_);
    if (attribute == "Reflectance")
        return reflectanceStart_ >= 0;
    if (attribute == "Amplitude")
        return amplitudeStart_ >= 0;
    if (attribute == "Red" || attribute == "Green" || attribute == "Blue")
        return hasColor(header_);
    if (attribute == "NearInfrared")
        return header_.point_data_format == 8;
    if (attribute == "Overlap" || attribute == "ScannerChannel")
        return version_ == 4;
    return attribute != "PointSourceID" || pointSourceID_ <= 0;
}

void LasBox::tellSupplies() const {
    using ConvLib::ValueChange;
    if (!host_.observer)
        return;
    for (const auto& [attribute, supply] : supplies_) {
        tell(attribute, ValueChange::Surplus, supply.surplus, supply.values + supply.surplus);
        tell(attribute, ValueChange::Repeated, total_ - supply.values, total_);
    }
}

/// Reports counts before the positions, so that an observer knows what to look for in them.
void LasBox::tell(const Changes& changes, std::uint32_t count) const {
    using ConvLib::ValueChange;
    const auto used = [count](const auto& slot) {
        const auto all = elements(slot);
        return all.first(std::min<std::size_t>(all.size(), count));
    };
    const auto positions = used(slots_.positions);
    const PositionChanges& moved = changes.positions;
    const std::pair<std::string_view, double> axes[] = {
        {"Positions.x", moved.x}, {"Positions.y", moved.y}, {"Positions.z", moved.z}};
    for (std::size_t i = 0; i < std::size(axes); ++i) {
        const auto& [axis, most] = axes[i];
        if (most > PositionChanges::noise)
            tell(axis, ValueChange::Rounded, moved.rounded, positions.size(), most * stepOf(i));
    }
    tell("Positions", ValueChange::Wrapped, moved.misfits, positions.size());
    tell("Classification", ValueChange::Truncated, changes.highClasses, used(slots_.classification).size());
    tell("ReturnNumber, NumberOfReturns", ValueChange::Clamped, changes.highReturns.points, count);
    tell("ScanDirectionFlag, EdgeOfFlightLine", ValueChange::Truncated, changes.wideFlags.points, count);
    tell("ScanAngleRank", ValueChange::Dropped, changes.fineAngles, used(slots_.scanAngle).size());
    tell("ScanAngleRank", ValueChange::OtherUnit, changes.wholeAngles, used(slots_.scanAngleRank).size());

    const auto tellShorts = [&](std::string_view attribute, const ShortChanges& changed, std::uint64_t values,
                                double unit) {
        if (!beyond_.settings.conforming)
            tell(attribute, ValueChange::Shifted, values, values);
        tell(attribute, ValueChange::Wrapped, changed.wrapped, values);
        tell(attribute, ValueChange::Rounded, changed.rounded, values, changed.most * unit);
    };
    if (reflectanceStart_ >= 0)
        tellShorts("Reflectance", changes.reflectance, used(slots_.reflectance).size(), reflectanceStep);
    if (amplitudeStart_ >= 0)
        tellShorts("Amplitude", changes.amplitude,
                   slots_.amplitude ? used(slots_.amplitude).size() : used(slots_.amplitudeFloat).size(), 1);
    if (beyond_.layout)
        tellBeyond(changes, count);
    host_.observer->positionsWritten(positions);
}

void LasBox::tellBeyond(const Changes& changes, std::uint32_t count) const {
    using ConvLib::ValueChange;
    tell("ScanAngleRank", ValueChange::Rounded, changes.roundedAngles, count, changes.maxAngleChange);
    tell("ScannerChannel", ValueChange::Truncated, changes.highChannels, count);
    const auto tellUnlessRoom = [&](std::string_view attribute, std::uint64_t values) {
        if (!hasRoomFor(attribute))
            tell(attribute, ValueChange::Dropped, values, count);
    };
    tellUnlessRoom("Overlap", changes.overlaps);
    tellUnlessRoom("ScannerChannel", changes.scannerChannels);
    tellUnlessRoom("NearInfrared", changes.nearInfrared);
    for (const ExtraBytesWriter& extra : extras_) {
        const ExtraBytesWriter::Changes& changed = extra.changes();
        const std::string& field = extra.description().field;
        tell(field, ValueChange::Rounded, changed.rounded, extra.size(), changed.most);
        tell(field, ValueChange::Clamped, changed.clamped, extra.size());
        tell(field, ValueChange::Dropped, changed.lost, extra.size());
    }
}

void LasBox::tell(std::string_view attribute, ConvLib::ValueChange change, std::uint64_t count,
                  std::uint64_t total, double most) const {
    if (count != 0)
        host_.observer->valuesChanged({attribute, change, count, total, most});
}

} // namespace ExportLib
