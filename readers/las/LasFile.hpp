// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "readers/InputFile.hpp"
#include "readers/las/ExtraAttribute.hpp"
#include "readers/las/LasHeader.hpp"
#include "readers/las/LazChunkTable.hpp"
#include "readers/las/LazDescription.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch::Las {

/// The metadata of a LAS or LAZ file (LAS 1.0 to 1.4): header, the variable length records that concern the
/// points, and the chunks of compressed points. All of it is checked, so that decoders may rely on it. The
/// object does not keep the file open.
class TIDEWATCH_API LasFile {
public:
    /// How points are compressed and where.
    struct Compression {
        LazDescription description;
        LazChunkTable chunks;
    };

    /// Opens, reads and checks the file. Throws Anchor::FileError where it cannot be read,
    /// Anchor::FormatError where something in it is wrong or unknown: "path: object: what". No more is
    /// allocated than the size of the file.
    explicit LasFile(std::string path);

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const LasHeader& header() const noexcept { return header_; }

    /// The described extra bytes in record order; what follows the last one is undescribed.
    [[nodiscard]] const std::vector<ExtraAttribute>& extraAttributes() const noexcept {
        return extraAttributes_;
    }

    /// Nothing for plain LAS files.
    [[nodiscard]] const std::optional<Compression>& compression() const noexcept { return compression_; }

    /// A record that does not describe how points are stored, and where its payload is.
    struct UserRecord {
        std::string userId;
        std::uint16_t recordId;
        std::string description;
        std::uint64_t offset;
        std::uint64_t length;
    };

    /// These records, extended ones last. Those beyond mostUserRecords are only counted.
    [[nodiscard]] const std::vector<UserRecord>& userRecords() const noexcept { return userRecords_; }
    [[nodiscard]] std::uint64_t moreUserRecords() const noexcept { return moreUserRecords_; }
    static constexpr std::size_t mostUserRecords = 10'000;

    /// The other records, which describe how points are stored, likewise.
    [[nodiscard]] const std::vector<UserRecord>& boundRecords() const noexcept { return boundRecords_; }

    /// Opens the file again, to read points. Throws Anchor::FileError when it is gone or has changed since.
    [[nodiscard]] InputFile open() const;

private:
    struct Record;
    struct RecordKind;

    void readRecords(const InputFile& file, const RecordKind& kind);
    void take(const Record& record, const InputFile& file);

    std::string path_;
    Anchor::FileState state_;
    LasHeader header_;
    std::vector<ExtraAttribute> extraAttributes_;
    std::optional<LazDescription> description_;
    std::optional<Compression> compression_;
    std::vector<UserRecord> userRecords_;
    std::uint64_t moreUserRecords_ = 0;
    std::vector<UserRecord> boundRecords_;
};

} // namespace Tidewatch::Las
