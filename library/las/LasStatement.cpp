// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasStatement.hpp"

#include "anchor/Error.hpp"
#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"

#include <cstddef>
#include <fstream>

namespace Tidewatch {

namespace {

namespace Place = Formats::Las::Header;

class HeaderBytes {
public:
    explicit HeaderBytes(const std::string& path) : path_(path) {
        std::ifstream in(path, std::ios::binary);
        in.read(reinterpret_cast<char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
        if (in.bad() || (!in && !in.eof()))
            throw Anchor::FileError(path + ": header: cannot be read");
        size_ = static_cast<std::size_t>(in.gcount());
    }

    template <class T>
    [[nodiscard]] T at(std::size_t place) const {
        if (place + sizeof(T) > size_)
            throw Anchor::FormatError(path_ + ": header: the file ends inside it");
        return Formats::loadLittleEndian<T>(bytes_.data() + place);
    }

private:
    const std::string& path_;
    std::array<std::uint8_t, Formats::Las::largestHeader> bytes_{};
    std::size_t size_ = 0;
};

} // namespace

LasStatement LasStatement::read(const std::string& path) {
    const HeaderBytes header(path);
    constexpr std::uint32_t signature = 0x4653414C; // "LASF"
    LasStatement statement;
    statement.versionMinor = header.at<std::uint8_t>(Place::versionMinor);
    if (header.at<std::uint32_t>(0) != signature || header.at<std::uint8_t>(Place::versionMajor) != 1 ||
        statement.versionMinor < 2 || statement.versionMinor > 4)
        throw Anchor::FormatError(path + ": header: is not LAS 1.2 to 1.4");
    static_cast<void>(header.at<std::uint8_t>(Formats::Las::smallestHeader - 1));

    const unsigned format = header.at<std::uint8_t>(Place::pointFormat);
    statement.compressed = (format & unsigned{Formats::Las::compressedFlag}) != 0;
    statement.pointFormat = format & ~unsigned{Formats::Las::compressedFlag};
    if (statement.versionMinor == 4) {
        statement.points = header.at<std::uint64_t>(Place::pointCount);
        for (std::size_t i = 0; i < Formats::Las::returns; ++i)
            statement.pointsByReturn.push_back(header.at<std::uint64_t>(Place::countsByReturn + 8 * i));
    } else {
        statement.points = header.at<std::uint32_t>(Place::legacyPointCount);
        for (std::size_t i = 0; i < Formats::Las::legacyReturns; ++i)
            statement.pointsByReturn.push_back(header.at<std::uint32_t>(Place::legacyCountsByReturn + 4 * i));
    }
    for (std::size_t axis = 0; axis < statement.lower.size(); ++axis) {
        statement.step[axis] = header.at<double>(Place::scale + 8 * axis);
        statement.offset[axis] = header.at<double>(Place::offset + 8 * axis);
        statement.upper[axis] = header.at<double>(Place::bounds + 16 * axis);
        statement.lower[axis] = header.at<double>(Place::bounds + 16 * axis + 8);
    }
    return statement;
}

} // namespace Tidewatch
