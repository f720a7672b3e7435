// SPDX-License-Identifier: Apache-2.0
#include "OutputFile.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Large enough to make the cost of system calls negligible, small enough to stay in the processor's cache.
constexpr std::size_t blockSize = 262144;

// The unit in which file systems cache files. Writing a part of one costs as much as writing all of it.
constexpr std::size_t pageSize = 4096;
static_assert(blockSize >= OutputFile::pieceLimit + pageSize);

} // namespace

OutputFile::OutputFile(const char* name)
    : block_(std::make_unique_for_overwrite<char[]>(blockSize)),
      descriptor_(::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    setp(block_.get(), block_.get() + blockSize);
}

OutputFile::~OutputFile() {
    close();
}

/// Writes everything.
void OutputFile::flush() {
    writeFront(static_cast<std::size_t>(pptr() - pbase()));
}

/// Writes all complete pages; the rest moves to the front.
void OutputFile::makeRoom() {
    const auto bytes = static_cast<std::size_t>(pptr() - pbase());
    writeFront(bytes - std::min(bytes, static_cast<std::size_t>((blockBegin_ + bytes) % pageSize)));
}

/// Writes a number of bytes from the front of the block, and moves the rest to the front.
void OutputFile::writeFront(std::size_t bytes) {
    for (std::size_t done = 0; done < bytes && !failed_;) {
        const ssize_t written =
            ::pwrite(descriptor_, pbase() + done, bytes - done, static_cast<off_t>(blockBegin_ + done));
        if (written > 0)
            done += static_cast<std::size_t>(written);
        else if (written == 0 || errno != EINTR)
            failed_ = true;
    }
    blockBegin_ += bytes;
    end_ = std::max(end_, blockBegin_);
    const auto rest = static_cast<std::size_t>(pptr() - pbase()) - bytes;
    std::memmove(pbase(), pbase() + bytes, rest);
    setp(block_.get(), block_.get() + blockSize);
    advance(rest);
}

void OutputFile::seek(U64 position) {
    flush();
    blockBegin_ = position;
}

void OutputFile::seekEnd() {
    flush();
    blockBegin_ = end_;
}

bool OutputFile::close() {
    if (descriptor_ >= 0) {
        flush();
        // Some file systems report only here that a block could not be stored.
        if (::close(descriptor_) != 0)
            failed_ = true;
        descriptor_ = -1;
    }
    return !failed_;
}

OutputFile::int_type OutputFile::overflow(int_type character) {
    makeRoom();
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(character);
        pbump(1);
    }
    return traits_type::not_eof(character);
}

int OutputFile::sync() {
    return 0;
}

OutputFile::pos_type OutputFile::seekoff(off_type offset, std::ios_base::seekdir from,
                                         std::ios_base::openmode) {
    if (from == std::ios_base::cur && offset == 0)
        return static_cast<pos_type>(static_cast<off_type>(position()));
    if (from == std::ios_base::end)
        seekEnd();
    else if (from == std::ios_base::beg)
        seek(0);
    seek(position() + static_cast<U64>(offset));
    return static_cast<pos_type>(static_cast<off_type>(position()));
}

OutputFile::pos_type OutputFile::seekpos(pos_type position, std::ios_base::openmode which) {
    return seekoff(static_cast<off_type>(position), std::ios_base::beg, which);
}
