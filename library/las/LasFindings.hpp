// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/ExportPointCloudToLas.hpp"
#include "library/export/CoordinateSurvey.hpp"
#include "library/las/LasColumns.hpp"
#include "library/las/LasMapping.hpp"
#include "library/las/LasSettings.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Tidewatch {

/// The axes of one file, x first.
using LasAxes = std::array<ExportLib::ExportPointCloudToLas::Axis, 3>;

/// What is found out about the points of a grid while they are in memory: how they change on their way into
/// LAS files. Cost: some tens of nanoseconds a point.
struct LasFindings {
    /// A coordinate that LAS cannot hold.
    struct Stray {
        std::size_t axis;
        double value;
    };

    /// How many values an attribute has.
    struct Supply {
        std::uint64_t values = 0;  ///< that become an attribute of a point
        std::uint64_t surplus = 0; ///< without a point
    };

    std::uint64_t points = 0;
    CoordinateSurvey survey;
    /// The first coordinate that is no finite number or does not fit the 32 bits of its axis.
    std::optional<Stray> stray;
    /// The most that a coordinate of an axis changes, in coordinate units.
    std::array<double, 3> rounding{};
    std::map<std::string, Supply> supplies;

    std::uint64_t highClasses = 0;      ///< beyond the 5 bits of LAS 1.2 and 1.3
    std::uint64_t highReturns = 0;      ///< points of which a return number is beyond the format's bits
    std::uint64_t wideFlags = 0;        ///< points of which a flag is neither 0 nor 1
    std::uint64_t fineAngles = 0;       ///< angles other than 0 that LAS 1.2 and 1.3 have no room for
    std::uint64_t rawAngles = 0;        ///< whole degrees other than 0 in the finer field of LAS 1.4
    std::uint64_t wildReflectances = 0; ///< outside of -25 to 5
    std::uint64_t wildAmplitudes = 0;   ///< outside of 0 to 65535
    std::uint64_t lateValues = 0;       ///< values of Reflectance and Amplitude
    double reflectanceRounding = 0;     ///< the most that a reflectance changes
    double amplitudeRounding = 0;       ///< the same for amplitudes

    /// Looks at the points of one more fragment, which goes into a file of these axes.
    void look(const LasColumns& columns, std::uint64_t fragmentPoints, const LasAxes& axes,
              const LasMapping& mapping, const LasSettings& settings);

private:
    void lookAtPositions(std::span<const Geom::PhysicalSpace::point> positions, const LasAxes& axes);
    void lookAlong(std::size_t axis, std::span<const Geom::PhysicalSpace::point> positions,
                   double Geom::PhysicalSpace::point::*coordinate,
                   const ExportLib::ExportPointCloudToLas::Axis& stored);
    void lookAtExtraBytes(const LasColumns& columns, std::uint64_t fragmentPoints, const LasMapping& mapping);
};

/// The largest return number that files hold.
[[nodiscard]] unsigned lasReturnLimit(const LasSettings& settings) noexcept;

} // namespace Tidewatch
