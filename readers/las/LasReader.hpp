// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"

namespace Tidewatch {

/// Reads LAS and LAZ files, versions 1.0 to 1.4, point formats 0 to 10.
///
/// A file becomes one grid, named after the file without its extension, in the slice at
/// ReadOptions::SliceTime, with the standard chart and one vertex skeleton without refinement entries. Its
/// points are cut, in file order, into fragments of ReadOptions::FragmentPoints, named "000000", "000001",
/// ... Fields:
///
/// | field | elements | of |
/// |---|---|---|
/// | Positions | points | the stored integers * scale + offset, in double precision |
/// | Intensity, PointSourceID | 16 bits unsigned | every format |
/// | ReturnNumber, NumberOfReturns, ScanDirectionFlag, EdgeOfFlightLine, UserData | 8 bits unsigned | every format |
/// | Classification | 8 bits unsigned | the low 5 bits in formats 0 to 5 |
/// | ScanAngleRank | 8 bits signed | whole degrees, in formats 0 to 5 |
/// | ScanAngleRank | 16 bits signed | steps of 0.006 degrees, in formats 6 to 10 |
/// | GPSTime | double | formats that have it |
/// | RGB | three bytes | formats that have it; divided by 256 where any channel of the file exceeds 255 |
/// | Red, Green, Blue | 16 bits unsigned | formats that have them; as stored |
/// | NearInfrared | 16 bits unsigned | formats that have it |
/// | Synthetic, KeyPoint, Withheld | 8 bits unsigned | every format; 0 or 1 |
/// | Overlap, ScannerChannel | 8 bits unsigned | formats 6 to 10 |
/// | Reflectance | float | the extra bytes "Reflectance" or "BSG_Reflectance" |
/// | Amplitude | 16 bits unsigned, or float | the extra bytes "Amplitude", unscaled 16 bits unsigned, or others |
/// | others | as in the file; double with a scale or an offset | one field each described number of the extra bytes |
///
/// In names of extra bytes, invalid characters become "_", an empty name becomes "ExtraBytesN" (N counts the
/// descriptions from 1), and a name that is already in use gets "_2", "_3", ... appended. The components of a
/// pair or triple (the deprecated types 11 to 30) have "_1", "_2", "_3" appended. Fields of extra bytes have
/// their encoding.
///
/// The grid's statement has step and offset (where steps are above 0), GPS time encoding, file source ID,
/// system identifier, and the records that do not describe how points are stored, up to 64 MiB of them. The
/// chart has the well-known text of record LASF_Projection/2112, unless the file has GeoTIFF keys and says
/// that these apply.
///
/// Arrays are decoded on demand, all fields of a fragment in one pass. Whether RGB is divided is determined
/// when RGB is first requested. The file is opened again then and must not have changed.
class TIDEWATCH_API LasReader final : public ConvLib::Reader {
public:
    LasReader() = default;
    ~LasReader() override;

    [[nodiscard]] std::string name() const override;
    /// By the signature "LASF".
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;
};

} // namespace Tidewatch
