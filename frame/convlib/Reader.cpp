// SPDX-License-Identifier: Apache-2.0
#include "convlib/Reader.hpp"

#include "anchor/Error.hpp"
#include "anchor/NeverDestroyed.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <sys/stat.h>

namespace ConvLib {

InputReport::~InputReport() = default;
std::vector<InputReport::Fact> InputReport::facts() const {
    return {};
}
std::vector<std::string> InputReport::lostByCellTypes() const {
    return {};
}
std::optional<InputReport::Box> InputReport::statedBox() const {
    return std::nullopt;
}
Reader::~Reader() = default;

namespace {

struct Readers {
    std::mutex mutex;
    std::vector<Anchor::StrongPtr<Reader>> list;
};

Readers& readers() {
    // Never destroyed: a host's static objects may unregister their readers at the end of the process.
    static Anchor::NeverDestroyed<Readers> all;
    return all.get();
}

[[noreturn]] void throwSystemError(const std::string& path, const char* what) {
    throw Anchor::FileError(path + ": " + what + ": " + std::generic_category().message(errno));
}

std::vector<std::byte> readHead(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0)
        throwSystemError(path, "cannot open");
    struct Closer {
        int file;
        ~Closer() { ::close(file); }
    } const closer{file};
    struct stat status {};
    if (::fstat(file, &status) != 0)
        throwSystemError(path, "cannot look at");
    // Readers seek in their files, which pipes and devices do not allow.
    if (S_ISDIR(status.st_mode)) {
        const std::string folder = path.substr(0, path.find_last_not_of('/') + 1);
        throw Anchor::FileError(path + " is a folder; name its files, for example " + folder + "/*.laz");
    }
    if (!S_ISREG(status.st_mode))
        throw Anchor::FileError(path + ": is not a regular file");
    std::vector<std::byte> head(Reader::headSize);
    std::size_t filled = 0;
    while (filled < head.size()) {
        const ssize_t got = ::read(file, head.data() + filled, head.size() - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throwSystemError(path, "cannot read");
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    head.resize(filled);
    return head;
}

} // namespace

void registerReader(Anchor::StrongPtr<Reader> reader) {
    const std::string name = reader->name();
    Readers& all = readers();
    const std::lock_guard lock(all.mutex);
    const auto same = std::find_if(all.list.begin(), all.list.end(),
                                   [&](const auto& registered) { return registered->name() == name; });
    if (same != all.list.end())
        *same = std::move(reader);
    else
        all.list.push_back(std::move(reader));
}

void unregisterReader(const std::string& name) {
    Readers& all = readers();
    const std::lock_guard lock(all.mutex);
    std::erase_if(all.list, [&](const auto& registered) { return registered->name() == name; });
}

std::vector<Anchor::StrongPtr<Reader>> registeredReaders() {
    Readers& all = readers();
    const std::lock_guard lock(all.mutex);
    return all.list;
}

Anchor::StrongPtr<InputReport> readFile(Sheaf::Bundle& bundle, const std::string& path,
                                        const ReadOptions& options) {
    const std::vector<std::byte> head = readHead(path);
    const auto candidates = registeredReaders();
    for (const auto& reader : candidates) {
        if (reader->recognises(path, head))
            return reader->read(bundle, path, options);
    }
    if (head.empty())
        throw Anchor::FormatError(path + ": the file is empty");
    std::string known;
    for (const auto& reader : candidates)
        known += (known.empty() ? "" : ", ") + reader->name();
    throw Anchor::FormatError(path + ": not recognised" +
                              (known.empty() ? " (no readers are registered)" : " (known: " + known + ")"));
}

} // namespace ConvLib
