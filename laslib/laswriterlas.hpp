// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "LazEncoder.hpp"
#include "OutputFile.hpp"
#include "laswriter.hpp"

#include <optional>
#include <ostream>
#include <vector>

/// Writes LAS and LAZ files.
///
/// A file is the header block, the header's variable length records, for LAZ one more that describes the
/// compression, and the points. Plain points are packed record by record into the file's block; compressed
/// ones go through the LASzip library, which writes chunks of 50 000 points and finally the chunk table. Extended
/// records, if the header has some, follow the points.
class LASwriterLAS final : public LASwriter {
public:
    LASwriterLAS() = default;
    ~LASwriterLAS() override;

    /// Creates the file and writes everything before the points. False, with a message on standard error, if
    /// that is not possible.
    bool open(const CHAR* fileName, const LASheader& header, bool compressed);

    void work_side_by_side(std::size_t workers, RunPieces run) override;
    BOOL write_point(const LASpoint* point) override;
    BOOL write_points(std::size_t count, const MakePoints& make) override;
    BOOL update_header(const LASheader* header, BOOL use_inventory, BOOL update_extra_bytes) override;
    I64 close(BOOL update_npoints) override;

private:
    void append(std::span<const char> bytes);
    void putRecord(char* to, const LASpoint& point) const;
    void writeRecords(std::size_t count, const MakePoints& make);
    void appendTrailingRecords();
    void overwrite(U64 position, std::span<const char> bytes);
    [[nodiscard]] bool isHealthy() const noexcept;
    template <class Step>
    [[nodiscard]] static bool attempt(Step step);

    std::optional<OutputFile> file_;
    std::optional<std::ostream> stream_;
    std::optional<LazEncoder> encoder_;
    /// Of the encoder, or memory has run out.
    bool hasFailed_ = false;
    std::size_t workers_ = 1;
    RunPieces run_;
    U8 format_ = 0;
    U8 versionMinor_ = 0;
    U16 recordLength_ = 0;
    /// Where the content of the record of attributes starts in the file; 0 if there is none.
    U64 attributesBegin_ = 0;
    std::vector<LASvlr> trailingRecords_;
};
