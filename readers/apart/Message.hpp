// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Structure.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch::Apart {

/// The types of messages, each with its payload in order. Texts and lists are preceded by their length.
enum class MessageType : std::uint8_t {
    // From the library to the server.
    Fork = 1,       ///< number of the child (u32), ModuleKind (u8), folder of the modules (text); its socket
    EndChild = 2,   ///< number (u32); not answered
    CpuOfChild = 3, ///< number (u32)
    EndingOf = 4,   ///< number (u32) of a child that is ending by itself

    // From the server to the library.
    Ready = 16,   ///< version (text)
    Forked = 17,  ///< nothing
    Ended = 18,   ///< wait status (u32), whether it had to be killed (u8)
    CpuTime = 19, ///< nanoseconds (u64); the largest number where it is unknown

    // From the library to a child.
    Open =
        32, ///< most bytes of an array (u64), whether the lock is required (u8), path (text), names of files
            ///< (list); their descriptors
    Recognise = 33, ///< nothing
    Describe = 34,  ///< nothing
    Read =
        35, ///< Structure::Array, bytes (u64), most (u64), whether they are to come as Data (u8); memory for
            ///< pieces, unless it is that of before or not needed
    Probe = 36,  ///< nothing: locks and answers Locked
    Taken = 37,  ///< nothing: the oldest piece that was Filled is no longer needed
    Memory = 38, ///< nothing; larger memory for pieces

    // From a child to the library.
    Locked = 48,     ///< what is in force (u8 seccomp, u32 Landlock's version, u8 limits)
    Recognised = 49, ///< whether (u8)
    Described = 50,  ///< Structure
    Done = 51,       ///< remarks (list)
    Progress = 52,   ///< share (double)
    Failed = 53,     ///< ErrorKind (u8), message (text)
    Data = 54,       ///< a piece of an array: its first byte (u64); the bytes
    Filled = 55,     ///< a piece of an array: its first byte, how many, their place in the memory (u64 each)
    NeedMemory = 56, ///< the bytes of memory that a piece needs (u64)
};

/// The kinds of errors that are sent.
enum class ErrorKind : std::uint8_t { File = 1, Format = 2, Limit = 3, Model = 4 };

/// Composes the payload of a message.
class MessageWriter {
public:
    MessageWriter& byte(std::uint8_t value);
    MessageWriter& number32(std::uint32_t value);
    MessageWriter& number64(std::uint64_t value);
    MessageWriter& real(double value);
    MessageWriter& text(std::string_view value);
    /// Bytes without a length.
    MessageWriter& raw(std::string_view value);
    MessageWriter& texts(std::span<const std::string> values);
    MessageWriter& array(const Structure::Array& value);
    MessageWriter& structure(const Structure& value);

    [[nodiscard]] const std::string& bytes() const noexcept { return bytes_; }

private:
    std::string bytes_;
};

/// Parses a message from another process, which is not trusted. Every operation throws Anchor::FormatError,
/// with a text that says only what is wrong, when the message does not contain what is asked for; no more is
/// allocated than the message holds.
class MessageReader {
public:
    explicit MessageReader(std::string_view bytes) : rest_(bytes) {}

    [[nodiscard]] std::uint8_t byte();
    [[nodiscard]] std::uint32_t number32();
    [[nodiscard]] std::uint64_t number64();
    [[nodiscard]] double real();
    [[nodiscard]] std::string text();
    [[nodiscard]] std::vector<std::string> texts();
    [[nodiscard]] Structure::Array array();
    [[nodiscard]] Structure structure();

    /// Everything that has not been read.
    [[nodiscard]] std::string_view rest() noexcept { return std::exchange(rest_, {}); }

    /// Throws unless everything has been read.
    void finish() const;

private:
    [[nodiscard]] std::string_view take(std::size_t size);
    /// The length of a list whose entries take `least` bytes each.
    [[nodiscard]] std::size_t count(std::size_t least);
    [[nodiscard]] std::vector<std::uint64_t> numbers64();
    [[nodiscard]] std::optional<std::array<std::uint64_t, 3>> overlap();
    [[nodiscard]] std::optional<std::array<double, 3>> triple();
    [[nodiscard]] std::uint16_t number16();
    [[nodiscard]] Sheaf::FileStatement statement();
    [[nodiscard]] std::optional<Sheaf::FieldEncoding> encoding();
    [[nodiscard]] Structure::Field field();
    [[nodiscard]] Structure::Skeleton skeleton();
    [[nodiscard]] Structure::Grid grid();

    std::string_view rest_;
};

} // namespace Tidewatch::Apart
