// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "anchor/StrongPtr.hpp"
#include "convlib/GridAdditions.hpp"
#include "convlib/RunObserver.hpp"
#include "convlib/WrittenFile.hpp"
#include "geom/BoundingBox.hpp"
#include "las/CaptureSlots.hpp"
#include "las/ExtraBytesWriter.hpp"
#include "las/LasLayout.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/Representation.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <laswriter.hpp>

namespace ExportLib {

struct PointArrays;
struct PointCounts;

/// What a host requests for a file beyond the contract.
struct BeyondContract {
    /// Only carry, conforming, step and offset are used.
    LasSettings settings = {};
    /// Set if the grid is carried or files are to conform.
    std::optional<LasLayout> layout = {};
    ConvLib::GridAdditions additions = {};
};

/// One output file: its header, the point that all its points are written through, its writer and its counts.
///
/// The constructor completes the header and creates the file, the destructor writes the counts and closes it.
/// In between, fragments are captured and written one after the other, on one thread.
class LasBox : public Anchor::ReferenceBase<LasBox> {
public:
    /// Callbacks to the host. Exceptions from the observer and askWhetherToStop pass through.
    struct Host {
        /// Called once, when the file is complete or has failed; never for a version without a file.
        std::function<void(const ConvLib::WrittenFile& file)> report;
        /// Notified of the axes before the file is created, and of changed values; may be null.
        Anchor::StrongPtr<ConvLib::RunObserver> observer = {};
        /// Called every BasicConverterDefs::stopInterval points; may be empty.
        std::function<void()> askWhetherToStop = {};
        /// With whom points are made and compressed; null: on the calling thread.
        Anchor::Workers* workers = nullptr;
    };

    /// `day` and `year` are those of setCreationDate(); an axis on which the box is empty counts as 0 to 0.
    /// Records get a colour where the representation has a field "RGB", and extra bytes where the grid has
    /// fields "Reflectance" and "Amplitude", whatever the element types of these fields are. Every point gets
    /// the point source ID if it is greater than 0.
    ///
    /// With a version other than 2, 3 and 4 there is no file, and points are not written. A file that cannot
    /// be created is not an error here.
    LasBox(int day, int year, const Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>& box,
           const Sheaf::Representation& representation, std::string fileName, const int& version,
           const int& pointSourceID, Anchor::StrongPtr<Sheaf::Grid> grid, Host host,
           BeyondContract beyond = {});
    ~LasBox() override;
    LasBox(const LasBox&) = delete;
    LasBox& operator=(const LasBox&) = delete;

    /// How many boxes this process created before this one.
    [[nodiscard]] int number() const noexcept { return number_; }
    [[nodiscard]] const LASheader& header() const noexcept { return header_; }
    [[nodiscard]] CaptureSlots& slots() noexcept { return slots_; }

    /// The writers of fields that become extra bytes; give them their arrays before writing points.
    [[nodiscard]] std::vector<ExtraBytesWriter>& extras() noexcept { return extras_; }
    /// Releases all arrays.
    void clear();

    /// Where the attributes begin in the extra bytes; -1 without them.
    [[nodiscard]] I32 reflectanceStart() const noexcept { return reflectanceStart_; }
    [[nodiscard]] I32 amplitudeStart() const noexcept { return amplitudeStart_; }

    /// Writes `count` points from the slots. An attribute without an array, or beyond the end of its array,
    /// keeps the value of the previous point. Warns on the console of return numbers that the format cannot
    /// hold.
    void writePoints(std::uint32_t count);

    /// Reports to the observer, if there is one, for how many points of the whole file values were missing,
    /// and how many values had no point.
    void tellSupplies() const;

private:
    struct Supply {
        std::uint64_t values = 0;
        std::uint64_t surplus = 0;
    };

    void setAxes(const Geom::BoundingBox& box);
    void addAttributes(const Sheaf::Representation& representation);
    void addLayout();
    void addStatement();
    void addAdditions();
    void tellAxes(const Geom::BoundingBox& box) const;
    void finish() noexcept;
    /// Records a failure; the first one counts.
    void noteFailure(bool hasFailed) noexcept;
    template <bool isExtended, bool isObserved>
    std::uint64_t writePointsOf(std::uint32_t count);
    template <bool isExtended, bool isObserved, bool isBeyond>
    std::uint64_t writePointsOf(std::uint32_t count);
    [[nodiscard]] bool isSideBySide() const noexcept;
    template <class Maker>
    bool writeSideBySide(const Maker& maker, std::size_t begin, std::size_t end, PointCounts& counts);
    [[nodiscard]] PointArrays arrays() const;
    void setStoredExtent();
    void noteSupplies(std::uint32_t count);
    [[nodiscard]] bool hasRoomFor(std::string_view attribute) const;
    [[nodiscard]] double stepOf(std::size_t axis) const noexcept;
    void tellBeyond(const PointCounts& counts, std::uint32_t count) const;
    void tell(const PointCounts& counts, std::uint32_t count) const;
    void tell(std::string_view attribute, ConvLib::ValueChange change, std::uint64_t count,
              std::uint64_t total, double most = 0) const;

    int number_;
    int version_;
    std::string fileName_;
    int pointSourceID_;
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    Host host_;
    BeyondContract beyond_;
    /// Points of each return, the first return at index 0. Headers of LAS 1.2 and 1.3 have only the first 5.
    std::array<std::uint32_t, 15> pointsByReturn_{};
    LASheader header_;
    LASwriteOpener opener_;
    LASpoint point_;
    std::unique_ptr<LASwriter> writer_;
    std::uint64_t total_ = 0;
    I32 reflectanceStart_ = -1;
    I32 amplitudeStart_ = -1;
    bool hasAttributes_ = false;
    bool failed_ = false;
    /// The system's error number of the first failure, if known.
    int error_ = 0;
    CaptureSlots slots_;
    std::vector<ExtraBytesWriter> extras_;
    /// The smallest and largest stored integers; without points, least > greatest.
    std::array<I32, 3> least_;
    std::array<I32, 3> greatest_;
    /// By attribute; only maintained for an observer.
    std::map<std::string, Supply, std::less<>> supplies_;
};

} // namespace ExportLib
