// SPDX-License-Identifier: Apache-2.0
#include "library/output/joinFiles.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t blockSize = std::size_t{1} << 20;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }
    [[nodiscard]] int number() const noexcept { return number_; }

private:
    int number_;
};

/// Joins two files; error messages name the file that the user knows.
class Joining {
public:
    Joining(const fs::path& head, const fs::path& tail, const std::function<void()>& check)
        : head_(head),
          check_(check),
          path_((tail.parent_path() / "joined-XXXXXX").string()),
          out_(::mkstemp(path_.data())),
          block_(blockSize) {
        if (!out_.isOpen())
            fail();
    }
    ~Joining() {
        if (!isDone_ && out_.isOpen())
            ::unlink(path_.c_str());
    }
    Joining(const Joining&) = delete;
    Joining& operator=(const Joining&) = delete;

    JoinedFile run(const fs::path& tail) {
        const struct stat status = copy(head_);
        if (::fchmod(out_.number(), status.st_mode & 07777) != 0)
            fail();
        copy(tail);
        isDone_ = true;
        return {path_, Anchor::FileState(status)};
    }

private:
    /// Returns the state of the file before it was read.
    struct stat copy(const fs::path& path) {
        const Descriptor in(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat status {};
        if (!in.isOpen() || ::fstat(in.number(), &status) != 0)
            fail();
        for (;;) {
            if (check_)
                check_();
            const ssize_t got = ::read(in.number(), block_.data(), block_.size());
            if (got == 0)
                return status;
            if (got > 0)
                write(static_cast<std::size_t>(got));
            else if (errno != EINTR)
                fail();
        }
    }

    void write(std::size_t size) {
        for (std::size_t done = 0; done != size;) {
            const ssize_t put = ::write(out_.number(), block_.data() + done, size - done);
            if (put >= 0)
                done += static_cast<std::size_t>(put);
            else if (errno != EINTR)
                fail();
        }
    }

    [[noreturn]] void fail() const {
        throw Anchor::FileError(
            fmt::format("{}: cannot be appended to: {}", head_.string(), systemMessage(errno)));
    }

    const fs::path& head_;
    const std::function<void()>& check_;
    std::string path_;
    Descriptor out_;
    std::vector<char> block_;
    bool isDone_ = false;
};

} // namespace

JoinedFile joinFiles(const fs::path& head, const fs::path& tail, const std::function<void()>& check) {
    return Joining(head, tail, check).run(tail);
}

} // namespace Tidewatch
