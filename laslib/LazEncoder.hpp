// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "laspoint.hpp"
#include "laswriter.hpp"
#include "mydefs.hpp"

#include <cstddef>
#include <memory>
#include <ostream>
#include <span>

/// Compresses the points of one file with the LASzip library, which is used for nothing else: headers and
/// counts are written by LASwriterLAS.
///
/// The chunks of a file do not depend on each other. Side by side, each is made and compressed by its own writer, and the
/// chunk table is made here; the file has the same bytes.
class LazEncoder {
public:
    /// For records of a point format and length; isReady() returns whether the library accepts them.
    LazEncoder(U8 format, U16 recordLength);
    ~LazEncoder();
    LazEncoder(const LazEncoder&) = delete;
    LazEncoder& operator=(const LazEncoder&) = delete;

    [[nodiscard]] bool isReady() const noexcept;

    /// The variable length record, including its header, that describes the compression. Valid as long as
    /// this object.
    [[nodiscard]] std::span<const U8> description() const noexcept;

    /// Puts the points at the stream's current position, where the first point finds it. The stream must outlive this
    /// object.
    void begin(std::ostream& stream);

    /// Compresses up to so many chunks before it writes them. After begin(), and before the first point.
    void compressSideBySide(std::size_t chunks, RunPieces run);

    /// Compresses a point, at once or later. False if LASzip failed; so do the other functions. May throw
    /// std::bad_alloc.
    bool write(const LASpoint& point);

    /// Compresses points: see LASwriter::write_points(). After compressSideBySide().
    bool write(std::size_t count, const LASwriter::MakePoints& make);

    /// Ends the last chunk and writes the chunk table.
    bool end();

    /// Points of all chunks but the last.
    static constexpr std::size_t chunkPoints = 50'000;

private:
    struct Library;
    class Chunks;
    bool start();

    U8 format_;
    U16 recordLength_;
    std::ostream* stream_ = nullptr;
    bool started_ = false;
    std::unique_ptr<Library> library_;
    std::unique_ptr<Chunks> chunks_;
};
