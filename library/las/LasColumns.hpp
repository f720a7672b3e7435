// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/Color.hpp"
#include "geom/PhysicalSpace.hpp"
#include "las/LasPlan.hpp"
#include "sheaf/MemBase.hpp"
#include "sheaf/TypedArray.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Tidewatch {

/// The values of one fragment's points, an array for each attribute that is present. The arrays stay in
/// memory as long as the object exists.
struct LasColumns {
    template <class T>
    using Column = Anchor::StrongPtr<Sheaf::TypedArray<T>>;

    Column<Geom::PhysicalSpace::point> positions;
    Column<unsigned char> classification;
    Column<unsigned short> intensity;
    Column<unsigned char> returnNumber;
    Column<unsigned char> numberOfReturns;
    Column<unsigned char> edgeOfFlightLine;
    Column<signed char> scanAngleRank;
    Column<short> scanAngle;
    Column<unsigned char> scanDirectionFlag;
    Column<unsigned char> userData;
    Column<unsigned short> pointSourceID;
    Column<double> gpsTime;
    Column<Geom::RGB<unsigned char>> rgb;
    Column<float> reflectance;
    Column<unsigned short> amplitude;
    Column<float> amplitudeFloat;
    Column<unsigned char> synthetic;
    Column<unsigned char> keyPoint;
    Column<unsigned char> withheld;
    Column<unsigned char> overlap;
    Column<unsigned char> scannerChannel;
    Column<unsigned short> nearInfrared;
    Column<unsigned short> red;
    Column<unsigned short> green;
    Column<unsigned short> blue;

    /// A number that becomes extra bytes: a component of the elements of an array.
    class Extra {
    public:
        /// `array` may be null; then there are no values.
        Extra(Anchor::StrongPtr<Sheaf::MemBase> array, std::size_t component);

        [[nodiscard]] std::size_t size() const noexcept { return size_; }
        /// Whether the values are in single precision.
        [[nodiscard]] bool holdsFloats() const noexcept;
        /// Nothing beyond the end.
        [[nodiscard]] std::optional<double> value(std::size_t place) const {
            if (place >= size_)
                return std::nullopt;
            return read_(first_ + place * elementSize_);
        }

    private:
        Anchor::StrongPtr<Sheaf::MemBase> array_;
        const std::byte* first_ = nullptr;
        std::size_t size_ = 0;
        std::size_t elementSize_ = 0;
        double (*read_)(const std::byte* number) = nullptr;
    };
    /// One for each of the plan's.
    std::vector<Extra> extras;

    /// Calls visitor(name of the attribute, column) for each of them.
    template <class Visitor>
    void forEach(Visitor&& visitor) {
        visit(*this, visitor);
    }
    template <class Visitor>
    void forEach(Visitor&& visitor) const {
        visit(*this, visitor);
    }

    /// Creates the arrays of a fragment. Throws what creators throw.
    [[nodiscard]] static LasColumns load(const std::vector<ExportLib::LasPlan::Capture>& captures);
    [[nodiscard]] static LasColumns load(const ExportLib::LasPlan& plan,
                                         const ExportLib::LasPlan::Fragment& fragment);

private:
    template <class Columns, class Visitor>
    static void visit(Columns& columns, Visitor& visitor) {
        visitor("Positions", columns.positions);
        visitor("Classification", columns.classification);
        visitor("Intensity", columns.intensity);
        visitor("ReturnNumber", columns.returnNumber);
        visitor("NumberOfReturns", columns.numberOfReturns);
        visitor("EdgeOfFlightLine", columns.edgeOfFlightLine);
        visitor("ScanAngleRank", columns.scanAngleRank);
        visitor("ScanAngleRank", columns.scanAngle);
        visitor("ScanDirectionFlag", columns.scanDirectionFlag);
        visitor("UserData", columns.userData);
        visitor("PointSourceID", columns.pointSourceID);
        visitor("GPSTime", columns.gpsTime);
        visitor("RGB", columns.rgb);
        visitor("Reflectance", columns.reflectance);
        visitor("Amplitude", columns.amplitude);
        visitor("Amplitude", columns.amplitudeFloat);
        visitor("Synthetic", columns.synthetic);
        visitor("KeyPoint", columns.keyPoint);
        visitor("Withheld", columns.withheld);
        visitor("Overlap", columns.overlap);
        visitor("ScannerChannel", columns.scannerChannel);
        visitor("NearInfrared", columns.nearInfrared);
        visitor("Red", columns.red);
        visitor("Green", columns.green);
        visitor("Blue", columns.blue);
    }
};

/// The values of a column; empty if there is no column.
template <class T>
[[nodiscard]] std::span<const T> valuesOf(const LasColumns::Column<T>& column) noexcept {
    return column ? std::span<const T>(column->base_vector()) : std::span<const T>();
}

} // namespace Tidewatch
