// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasStatement.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <fstream>

namespace Tidewatch {

namespace {

constexpr std::size_t oldHeaderSize = 227; // LAS 1.2; 1.3 and 1.4 add to it
constexpr std::size_t headerSize = 375;    // LAS 1.4

class HeaderBytes {
public:
    explicit HeaderBytes(const std::string& path) : path_(path) {
        std::ifstream in(path, std::ios::binary);
        in.read(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
        if (in.bad() || (!in && !in.eof()))
            throw Anchor::FileError(path + ": header: cannot be read");
        size_ = static_cast<std::size_t>(in.gcount());
    }

    template <class T>
    [[nodiscard]] T at(std::size_t place) const {
        if (place + sizeof(T) > size_)
            throw Anchor::FormatError(path_ + ": header: the file ends in it");
        std::array<char, sizeof(T)> ordered;
        std::memcpy(ordered.data(), bytes_.data() + place, sizeof(T));
        if constexpr (std::endian::native == std::endian::big)
            std::reverse(ordered.begin(), ordered.end());
        return std::bit_cast<T>(ordered);
    }

private:
    const std::string& path_;
    std::array<char, headerSize> bytes_{};
    std::size_t size_ = 0;
};

} // namespace

LasStatement LasStatement::read(const std::string& path) {
    const HeaderBytes header(path);
    constexpr std::uint32_t signature = 0x4653414C; // "LASF"
    LasStatement statement;
    statement.versionMinor = header.at<std::uint8_t>(25);
    if (header.at<std::uint32_t>(0) != signature || header.at<std::uint8_t>(24) != 1 ||
        statement.versionMinor < 2 || statement.versionMinor > 4)
        throw Anchor::FormatError(path + ": header: is none of LAS 1.2 to 1.4");
    static_cast<void>(header.at<std::uint8_t>(oldHeaderSize - 1));

    constexpr unsigned compressionBit = 0x80;
    const unsigned format = header.at<std::uint8_t>(104);
    statement.compressed = (format & compressionBit) != 0;
    statement.pointFormat = format & ~compressionBit;
    if (statement.versionMinor == 4) {
        statement.points = header.at<std::uint64_t>(247);
        for (std::size_t i = 0; i < 15; ++i)
            statement.pointsByReturn.push_back(header.at<std::uint64_t>(255 + 8 * i));
    } else {
        statement.points = header.at<std::uint32_t>(107);
        for (std::size_t i = 0; i < 5; ++i)
            statement.pointsByReturn.push_back(header.at<std::uint32_t>(111 + 4 * i));
    }
    for (std::size_t axis = 0; axis < statement.lower.size(); ++axis) {
        statement.step[axis] = header.at<double>(131 + 8 * axis);
        statement.offset[axis] = header.at<double>(155 + 8 * axis);
        statement.upper[axis] = header.at<double>(179 + 16 * axis);
        statement.lower[axis] = header.at<double>(187 + 16 * axis);
    }
    return statement;
}

} // namespace Tidewatch
