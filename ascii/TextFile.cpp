// SPDX-License-Identifier: Apache-2.0
#include "ascii/TextFile.hpp"

namespace ExportLib {

TextFile::TextFile(const std::filesystem::path& path, bool append, bool flushLines)
    : path_(path),
      stream_(path, append ? std::ios::out | std::ios::app : std::ios::out | std::ios::trunc),
      lines_(stream_, flushLines) {}

ConvLib::WrittenFile TextFile::close(std::uint64_t items) {
    lines_.finish();
    stream_.close();
    return {path_.string(), lines_.bytes(), items, stream_.fail()};
}

} // namespace ExportLib
