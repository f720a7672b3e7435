// SPDX-License-Identifier: Apache-2.0
#include "las/LasBox.hpp"

#include "anchor/Console.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "formats/las/layout.hpp"
#include "las/LasPlan.hpp"
#include "las/PointMaker.hpp"
#include "las/fileIsComplete.hpp"
#include "las/lasHeader.hpp"
#include "las/lasRules.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <exception>
#include <iterator>
#include <limits>
#include <mutex>
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
    if (Anchor::Workers* const workers = host_.workers; writer_ && isSideBySide())
        writer_->work_side_by_side(workers->count(), [workers](std::size_t pieces, const auto& piece) {
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
    const bool isConforming = beyond_.settings.conforming;
    const PointMaker<isExtended, isObserved, isBeyond> maker(
        arrays(),
        {static_cast<const LASquantizer&>(header_), reflectanceStart_, amplitudeStart_, isConforming});
    PointCounts counts(extras_.size());
    if (pointSourceID_ > 0)
        point_.point_source_ID = static_cast<U16>(pointSourceID_);
    errno = 0;
    const auto write = [&](std::size_t begin, std::size_t end) {
#ifdef TIDEWATCH_LASLIB_SIDE_BY_SIDE
        if (isSideBySide())
            return writeSideBySide(maker, begin, end, counts);
#endif
        LASwriter& writer = *writer_;
        bool accepted = true;
        maker.make(point_, begin, end, counts, [&](const LASpoint& point) {
            accepted = writer.write_point(&point) && accepted;
            if (hasAttributes_)
                writer.update_inventory(&point);
        });
        return accepted;
    };

    constexpr std::size_t interval = ConvLib::BasicConverterDefs::stopInterval;
    // Enough for all workers to have something to do while the last of them ends.
    const std::size_t block = interval * (isSideBySide() ? 4 * std::size_t{host_.workers->count()} : 1);
    std::exception_ptr stop;
    for (std::size_t begin = 0, end = 0; begin < count && !stop; begin = end) {
        try {
            while (end < std::min<std::size_t>(count, begin + block)) {
                if (host_.askWhetherToStop)
                    host_.askWhetherToStop();
                end = std::min<std::size_t>(count, end + interval);
            }
        } catch (...) {
            // What comes before is written, whatever the number of workers.
            stop = std::current_exception();
        }
        // Counted block by block, so that the header is right even if the run is stopped here.
        total_ += end - begin;
        if (!isConforming && !slots_.returnNumber)
            pointsByReturn_[0] += static_cast<std::uint32_t>(end - begin);
        noteFailure(!write(begin, end));
    }
    for (std::size_t i = 0; i < pointsByReturn_.size(); ++i)
        pointsByReturn_[i] += counts.byReturn[i];
    for (std::size_t i = 0; i < least_.size(); ++i) {
        least_[i] = std::min(least_[i], counts.least[i]);
        greatest_[i] = std::max(greatest_[i], counts.greatest[i]);
    }
    if (stop)
        std::rethrow_exception(stop);
    if constexpr (isObserved)
        tell(counts, count);
    return counts.violations;
}

bool LasBox::isSideBySide() const noexcept {
#ifdef TIDEWATCH_LASLIB_SIDE_BY_SIDE
    return Anchor::workerCount(host_.workers) > 1;
#else
    return false;
#endif
}

#ifdef TIDEWATCH_LASLIB_SIDE_BY_SIDE
/// Makes and writes the points `begin` to before `end`, in pieces that workers make. The writer's inventory stays as it
/// is: nothing that is written comes from there.
template <class Maker>
bool LasBox::writeSideBySide(const Maker& maker, std::size_t begin, std::size_t end, PointCounts& counts) {
    if (begin == end)
        return true;
    std::mutex mutex;
    const bool accepted = writer_->write_points(
        end - begin, [&](std::size_t first, std::size_t last, const LASwriter::PutPoint& put) {
            LASpoint point;
            point.init(&header_, header_.point_data_format, header_.point_data_record_length, &header_);
            point.copy_fields(point_);
            if (first > 0)
                maker.makeLast(point, begin + first - 1);
            PointCounts own(extras_.size());
            maker.make(point, begin + first, begin + last, own, [&](const LASpoint& made) { put(made); });
            const std::lock_guard lock(mutex);
            counts.add(own);
        });
    maker.makeLast(point_, end - 1);
    return accepted;
}
#endif

/// The arrays in the slots that the records have room for.
PointArrays LasBox::arrays() const {
    PointArrays all;
    all.positions = elements(slots_.positions);
    all.classification = elements(slots_.classification);
    all.intensity = elements(slots_.intensity);
    all.returnNumber = elements(slots_.returnNumber);
    all.numberOfReturns = elements(slots_.numberOfReturns);
    all.edgeOfFlightLine = elements(slots_.edgeOfFlightLine);
    all.scanDirectionFlag = elements(slots_.scanDirectionFlag);
    all.userData = elements(slots_.userData);
    all.scanAngleRank = elements(slots_.scanAngleRank);
    all.scanAngle = elements(slots_.scanAngle);
    all.gpsTime = elements(slots_.gpsTime);
    all.rgb = elements(slots_.rgb);
    if (pointSourceID_ <= 0)
        all.pointSourceID = elements(slots_.pointSourceID);
    // A renamed field may fill a slot although the header does not have the attribute; then its values are
    // not stored.
    if (reflectanceStart_ >= 0)
        all.reflectance = elements(slots_.reflectance);
    if (amplitudeStart_ >= 0) {
        all.amplitude = elements(slots_.amplitude);
        if (!slots_.amplitude)
            all.amplitudeFloat = elements(slots_.amplitudeFloat);
    }
    all.synthetic = elements(slots_.synthetic);
    all.keyPoint = elements(slots_.keyPoint);
    all.withheld = elements(slots_.withheld);
    all.overlap = elements(slots_.overlap);
    all.scannerChannel = elements(slots_.scannerChannel);
    all.nearInfrared = elements(slots_.nearInfrared);
    all.wideColors = {elements(slots_.red), elements(slots_.green), elements(slots_.blue)};
    all.extras = extras_;
    return all;
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
void LasBox::tell(const PointCounts& counts, std::uint32_t count) const {
    using ConvLib::ValueChange;
    const auto used = [count](const auto& slot) {
        const auto all = elements(slot);
        return all.first(std::min<std::size_t>(all.size(), count));
    };
    const auto positions = used(slots_.positions);
    const ObservedCounts& changes = counts.observed;
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
        tellBeyond(counts, count);
    host_.observer->positionsWritten(positions);
}

void LasBox::tellBeyond(const PointCounts& counts, std::uint32_t count) const {
    using ConvLib::ValueChange;
    const ObservedCounts& changes = counts.observed;
    tell("ScanAngleRank", ValueChange::Rounded, changes.roundedAngles, count, changes.maxAngleChange);
    tell("ScannerChannel", ValueChange::Truncated, changes.highChannels, count);
    const auto tellUnlessRoom = [&](std::string_view attribute, std::uint64_t values) {
        if (!hasRoomFor(attribute))
            tell(attribute, ValueChange::Dropped, values, count);
    };
    tellUnlessRoom("Overlap", changes.overlaps);
    tellUnlessRoom("ScannerChannel", changes.scannerChannels);
    tellUnlessRoom("NearInfrared", changes.nearInfrared);
    for (std::size_t number = 0; number < extras_.size(); ++number) {
        const ExtraBytesWriter& extra = extras_[number];
        const ExtraBytesWriter::Changes& changed = counts.extras[number];
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
