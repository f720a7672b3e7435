// SPDX-License-Identifier: Apache-2.0
#include "library/output/joinFiles.hpp"

#include "anchor/Error.hpp"
#include "library/output/systemFiles.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t blockSize = std::size_t{1} << 20;

/// Joins two files; messages name `head`, the file that the user knows.
class Joining {
public:
    Joining(const fs::path& head, const fs::path& tail, const std::function<void()>& check)
        : head_(head),
          check_(check),
          path_((tail.parent_path() / "joined-XXXXXX").string()),
          block_(blockSize),
          out_(::mkostemp(path_.data(), O_CLOEXEC)) {
        if (!out_.isOpen())
            fail(errno);
    }
    ~Joining() {
        if (!isDone_)
            ::unlink(path_.c_str());
    }
    Joining(const Joining&) = delete;
    Joining& operator=(const Joining&) = delete;

    JoinedFile run(const fs::path& tail) {
        const struct stat status = copy(head_);
        copy(tail);
        require(takeOverMode(out_, status));
        if (::fsync(out_.number()) != 0)
            fail(errno);
        struct stat joined {};
        if (::fstat(out_.number(), &joined) != 0)
            fail(errno);
        require(out_.close());
        if (static_cast<std::uint64_t>(joined.st_size) != written_)
            throw Anchor::FileError(
                fmt::format("{}: cannot be appended to: {} bytes were written, and {} arrived",
                            head_.string(), written_, joined.st_size));
        JoinedFile result{path_, Anchor::FileState(status)};
        isDone_ = true;
        return result;
    }

private:
    /// Returns the state of the file before it was read.
    struct stat copy(const fs::path& path) {
        const Descriptor in(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat status {};
        if (!in.isOpen() || ::fstat(in.number(), &status) != 0)
            fail(errno);
        std::uint64_t copied = 0;
        for (;;) {
            if (check_)
                check_();
            const ssize_t got = ::read(in.number(), block_.data(), block_.size());
            if (got == 0)
                break;
            if (got > 0) {
                require(writeAll(out_, block_.data(), static_cast<std::size_t>(got)));
                copied += static_cast<std::uint64_t>(got);
            } else if (errno != EINTR) {
                fail(errno);
            }
        }
        written_ += copied;
        if (copied != static_cast<std::uint64_t>(status.st_size))
            throw Anchor::FileError(fmt::format("{}: cannot be appended to: {} bytes were read of {}",
                                                head_.string(), copied, status.st_size));
        return status;
    }

    void require(int error) const {
        if (error != 0)
            fail(error);
    }

    [[noreturn]] void fail(int error) const {
        throw Anchor::FileError(
            fmt::format("{}: cannot be appended to: {}", head_.string(), systemMessage(error)));
    }

    const fs::path& head_;
    const std::function<void()>& check_;
    std::string path_;
    std::vector<char> block_;
    Descriptor out_;
    std::uint64_t written_ = 0;
    bool isDone_ = false;
};

} // namespace

JoinedFile joinFiles(const fs::path& head, const fs::path& tail, const std::function<void()>& check) {
    return Joining(head, tail, check).run(tail);
}

} // namespace Tidewatch
