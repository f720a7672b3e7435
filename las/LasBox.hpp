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

/// What a host asks of a file beyond the contract.
struct BeyondContract {
    /// Of these, carry, conforming, step and offset count.
    LasSettings settings = {};
    /// Where the grid is carried, or files are to conform.
    std::optional<LasLayout> layout = {};
    ConvLib::GridAdditions additions = {};
};

/// One output file: its header, the point that all its points are written through, its writer and its counts.
///
/// The constructor completes the header and makes the file, the destructor writes the counts and closes it.
/// Between them fragments are captured and written, one after the other, on one thread.
class LasBox : public Anchor::ReferenceBase<LasBox> {
public:
    /// Whom a box turns to. What the observer and the question throw passes through.
    struct Host {
        /// Told once, when the file is complete or has failed; never for a version without a file.
        std::function<void(const ConvLib::WrittenFile& file)> report;
        /// Told of the axes before the file is made, and of values that change; may be null.
        Anchor::StrongPtr<ConvLib::RunObserver> observer = {};
        /// Asked every BasicConverterDefs::stopInterval points; may be empty.
        std::function<void()> askWhetherToStop = {};
    };

    /// `day` and `year` are those of setCreationDate(); an axis on which the box is empty counts as 0 to 0.
    /// Records get a colour where the representation has a field "RGB", and extra bytes where the grid has
    /// fields "Reflectance" and "Amplitude", whatever the element types of these fields are. Every point gets
    /// the point source ID where it is greater than 0.
    ///
    /// With a version other than 2, 3 and 4 there is no file, and points are not written. A file that cannot be
    /// made is not an error here.
    LasBox(int day, int year, const Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>& box,
           const Sheaf::Representation& representation, std::string fileName, const int& version,
           const int& pointSourceID, Anchor::StrongPtr<Sheaf::Grid> grid, Host host,
           BeyondContract beyond = {});
    ~LasBox() override;
    LasBox(const LasBox&) = delete;
    LasBox& operator=(const LasBox&) = delete;

    /// How many boxes this process made before this one.
    [[nodiscard]] int number() const noexcept { return number_; }
    [[nodiscard]] const LASheader& header() const noexcept { return header_; }
    [[nodiscard]] CaptureSlots& slots() noexcept { return slots_; }

    /// The fields that become extra bytes of their own, whose arrays are put in before points are written.
    [[nodiscard]] std::vector<ExtraBytesWriter>& extras() noexcept { return extras_; }
    /// Lets go of all arrays.
    void clear();

    /// Where the attributes begin in the extra bytes; -1 without them.
    [[nodiscard]] I32 reflectanceStart() const noexcept { return reflectanceStart_; }
    [[nodiscard]] I32 amplitudeStart() const noexcept { return amplitudeStart_; }

    /// Writes `count` points from the slots. An attribute without an array, or beyond the end of its array,
    /// keeps what the point before had. Warns on the console of return numbers that the format cannot hold.
    void writePoints(std::uint32_t count);

    /// Tells the observer, if there is one, for which points of the whole file values were missing, and which
    /// values had no point.
    void tellSupplies() const;

private:
    /// What becomes of a fragment's values.
    struct Changes;
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
    /// Remembers a failure; the first one counts.
    void noteFailure(bool hasFailed) noexcept;
    template <bool isExtended, bool isObserved>
    std::uint64_t writePointsOf(std::uint32_t count);
    template <bool isExtended, bool isObserved, bool isBeyond>
    std::uint64_t writePointsOf(std::uint32_t count);
    void setStoredExtent();
    void noteSupplies(std::uint32_t count);
    [[nodiscard]] bool hasRoomFor(std::string_view attribute) const;
    [[nodiscard]] double stepOf(std::size_t axis) const noexcept;
    void tellBeyond(const Changes& changes, std::uint32_t count) const;
    void tell(const Changes& changes, std::uint32_t count) const;
    void tell(std::string_view attribute, ConvLib::ValueChange change, std::uint64_t count,
              std::uint64_t total, double most = 0) const;

    int number_;
    int version_;
    std::string fileName_;
    int pointSourceID_;
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    Host host_;
    BeyondContract beyond_;
    /// Points of each return, the first in place 0. LAS 1.2 and 1.3 have room for 5; what the places behind
    /// count never reaches their headers.
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
    /// Of the first failure, where the system's error number was still to be had.
    int error_ = 0;
    CaptureSlots slots_;
    std::vector<ExtraBytesWriter> extras_;
    /// The least and the greatest stored integers; the least is the greater one while there is no point.
    std::array<I32, 3> least_;
    std::array<I32, 3> greatest_;
    /// By attribute; kept for an observer only.
    std::map<std::string, Supply, std::less<>> supplies_;
};

} // namespace ExportLib
