// SPDX-License-Identifier: Apache-2.0
#include "ascii/TextFile.hpp"

#include <cerrno>

namespace ExportLib {

TextFile::TextFile(const std::filesystem::path& path, bool append, bool flushLines)
    : path_(path),
      stream_(path, append ? std::ios::out | std::ios::app : std::ios::out | std::ios::trunc),
      openError_(stream_.is_open() ? 0 : errno),
      lines_(stream_, flushLines) {}

ConvLib::WrittenFile TextFile::close(std::uint64_t items) {
    lines_.finish();
    int error = openError_ != 0 ? openError_ : lines_.error();
    errno = 0;
    stream_.close();
    if (error == 0 && stream_.fail())
        error = errno;
    return {path_.string(), lines_.bytes(), items, stream_.fail(), error};
}

} // namespace ExportLib
