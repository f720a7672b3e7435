// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/LasFileBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Support {

/// A LAS or LAZ file as a plain reader of the published layout sees it (LAS 1.4 R15, tables 3, 7 and 24).
/// Shares nothing with what wrote the file.
class WrittenLas {
public:
    struct Vlr {
        std::uint16_t reserved;
        std::string userId;
        std::uint16_t recordId;
        std::string description;
        std::string payload;
    };

    explicit WrittenLas(std::string content) : bytes(std::move(content)) {
        if (bytes.size() < 227 || bytes.compare(0, 4, "LASF") != 0)
            throw std::runtime_error("no LAS header");
    }
    [[nodiscard]] static WrittenLas read(const std::string& path) { return WrittenLas(readBytes(path)); }

    template <class T>
    [[nodiscard]] T at(std::size_t place) const {
        return number<T>(bytes, place);
    }

    [[nodiscard]] unsigned versionMinor() const { return at<std::uint8_t>(25); }
    [[nodiscard]] std::string text(std::size_t place, std::size_t size) const {
        const std::string field = bytes.substr(place, size);
        return field.substr(0, field.find('\0'));
    }
    [[nodiscard]] unsigned day() const { return at<std::uint16_t>(90); }
    [[nodiscard]] unsigned year() const { return at<std::uint16_t>(92); }
    [[nodiscard]] std::uint32_t pointsBegin() const { return at<std::uint32_t>(96); }
    [[nodiscard]] unsigned format() const { return at<std::uint8_t>(104) & 0x3FU; }
    [[nodiscard]] bool isCompressed() const { return (at<std::uint8_t>(104) & 0x80U) != 0; }
    [[nodiscard]] std::size_t recordLength() const { return at<std::uint16_t>(105); }
    [[nodiscard]] std::uint32_t legacyCount() const { return at<std::uint32_t>(107); }
    [[nodiscard]] std::uint64_t count() const {
        return versionMinor() >= 4 ? at<std::uint64_t>(247) : legacyCount();
    }
    [[nodiscard]] std::vector<std::uint64_t> countsByReturn() const {
        std::vector<std::uint64_t> counts;
        for (std::size_t i = 0; i < (versionMinor() >= 4 ? 15U : 5U); ++i)
            counts.push_back(versionMinor() >= 4 ? at<std::uint64_t>(255 + 8 * i)
                                                 : at<std::uint32_t>(111 + 4 * i));
        return counts;
    }
    [[nodiscard]] double scale(std::size_t axis) const { return at<double>(131 + 8 * axis); }
    [[nodiscard]] double offset(std::size_t axis) const { return at<double>(155 + 8 * axis); }
    [[nodiscard]] double upper(std::size_t axis) const { return at<double>(179 + 16 * axis); }
    [[nodiscard]] double lower(std::size_t axis) const { return at<double>(187 + 16 * axis); }

    /// They have to end where the points begin, unless `mayHaveGap`.
    [[nodiscard]] std::vector<Vlr> vlrs(bool mayHaveGap = false) const {
        std::vector<Vlr> list;
        std::size_t place = at<std::uint16_t>(94);
        for (std::uint32_t i = 0; i < at<std::uint32_t>(100); ++i) {
            const std::size_t size = at<std::uint16_t>(place + 20);
            list.push_back({at<std::uint16_t>(place), text(place + 2, 16), at<std::uint16_t>(place + 18),
                            text(place + 22, 32), bytes.substr(place + 54, size)});
            place += 54 + size;
        }
        if (place != pointsBegin() && !mayHaveGap)
            throw std::runtime_error("the records do not end where the points begin");
        return list;
    }

    /// Extended records, which stand behind the points and end the file.
    [[nodiscard]] std::vector<Vlr> evlrs() const {
        std::vector<Vlr> list;
        if (versionMinor() < 4 || at<std::uint32_t>(243) == 0)
            return list;
        std::size_t place = at<std::uint64_t>(235);
        for (std::uint32_t i = 0; i < at<std::uint32_t>(243); ++i) {
            const std::size_t size = at<std::uint64_t>(place + 20);
            list.push_back({at<std::uint16_t>(place), text(place + 2, 16), at<std::uint16_t>(place + 18),
                            text(place + 28, 32), bytes.substr(place + 60, size)});
            place += 60 + size;
        }
        if (place != bytes.size())
            throw std::runtime_error("the extended records do not end with the file");
        return list;
    }

    /// Decodes records that lie one after the other.
    [[nodiscard]] std::vector<LasRecord> decode(const std::string& records) const {
        std::vector<LasRecord> list;
        if (records.size() != count() * recordLength())
            throw std::runtime_error(std::to_string(records.size()) + " bytes are not " +
                                     std::to_string(count()) + " records");
        list.reserve(count());
        for (std::size_t place = 0; place < records.size(); place += recordLength())
            list.push_back(LasFileBuilder::decode(records, place, format(), recordLength()));
        return list;
    }

    /// The points of an uncompressed file, which has to end with the last of them or with extended records.
    [[nodiscard]] std::vector<LasRecord> records() const {
        if (isCompressed())
            throw std::runtime_error("a compressed file");
        const std::size_t end = evlrs().empty() ? bytes.size() : at<std::uint64_t>(235);
        return decode(bytes.substr(pointsBegin(), end - pointsBegin()));
    }

    std::string bytes;
};

} // namespace Support
