// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Structure.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// An input file and its companion files, all of them open. A Source opens no files.
struct SourceFiles {
    struct File {
        /// The file name without folders.
        std::string name;
        /// Owned by the creator of the object; must outlive every Source of it.
        int descriptor = -1;
        /// In bytes.
        std::uint64_t size = 0;
    };

    /// The path of the input, only for messages.
    std::string path;
    /// The input itself first.
    std::vector<File> files;
};

/// Where a source puts the elements of an array.
class ArrayMemory {
public:
    ArrayMemory() = default;
    virtual ~ArrayMemory() = default;
    ArrayMemory(const ArrayMemory&) = delete;
    ArrayMemory& operator=(const ArrayMemory&) = delete;

    /// In bytes.
    [[nodiscard]] virtual std::uint64_t size() const = 0;

    /// Memory for the bytes [begin, begin + count) of the array, to be filled before the next call or before reading
    /// ends. A piece begins where the ones before end, or ends where they begin; together they are the array. Pieces of
    /// up to `goodPiece` bytes can be passed on while the next one is being read. Calls `between` from time to time.
    /// Throws Anchor::LimitError.
    [[nodiscard]] virtual std::span<std::byte> piece(std::uint64_t begin, std::uint64_t count,
                                                     const std::function<void()>& between) = 0;
    static constexpr std::uint64_t goodPiece = std::uint64_t{4} << 20;

    /// Provides some of the memory that later pieces will need; false if there is nothing to do. The system provides
    /// memory as it is first written to, gigabytes of it in seconds: who waits for another process does that meanwhile.
    /// Throws Anchor::LimitError.
    virtual bool provideMore() { return false; }
};

/// Memory that is there.
class GivenMemory final : public ArrayMemory {
public:
    explicit GivenMemory(std::span<std::byte> memory) : memory_(memory) {}

    [[nodiscard]] std::uint64_t size() const override { return memory_.size(); }
    [[nodiscard]] std::span<std::byte> piece(std::uint64_t begin, std::uint64_t count,
                                             const std::function<void()>&) override {
        return memory_.subspan(begin, count);
    }

private:
    std::span<std::byte> memory_;
};

/// An open input. Used by one thread at a time.
class Source {
public:
    /// Called with the share (0 to 1) that is done; may throw to stop.
    using Tick = std::function<void(double share)>;

    virtual ~Source() = default;

    /// What the file contains. Throws Anchor::FormatError for a damaged or unsupported file,
    /// Anchor::FileError when the system cannot read, Anchor::LimitError when memory runs out.
    [[nodiscard]] virtual Structure structure(const Tick& tick) = 0;

    /// Puts an array into `target`, which has the size of all elements: an array that structure() named, of this or
    /// of an earlier Source of the same file. Throws Anchor::LimitError if reading needs a temporary buffer
    /// of more than `most` bytes. Returns remarks for InputReport::lostByCellTypes. Throws what
    /// structure() throws.
    [[nodiscard]] virtual std::vector<std::string> read(const Structure::Array& array, ArrayMemory& target,
                                                        std::uint64_t most, const Tick& tick) = 0;

    /// Whether it can still be used. A source in another process ends with that process.
    [[nodiscard]] virtual bool isUsable() const { return true; }
};

/// A library that reads one family of files, loaded by the reading process: see loadModule().
class SourceModule {
public:
    virtual ~SourceModule() = default;

    /// The project's version that it was built from.
    [[nodiscard]] virtual std::string_view version() const = 0;

    /// Makes the library open its own files, such as databases, now. Called before processes are forked that give up
    /// opening files, and in each of them; what is open already stays open, and the call costs next to nothing.
    virtual void prepare() const = 0;

    /// Whether the file is one of this family, including those that open() refuses with a reason.
    [[nodiscard]] virtual bool recognises(const SourceFiles& files) const = 0;

    /// Throws what Source::structure() throws. The files outlive the source.
    [[nodiscard]] virtual std::unique_ptr<Source> open(const SourceFiles& files) const = 0;
};

} // namespace Tidewatch
