// SPDX-License-Identifier: Apache-2.0
#include "convlib/LineWriter.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>
#include <utility>
#include <vector>

namespace ConvLib {

namespace {

/// A text in memory.
class MemoryText final : public LineText {
public:
    MemoryText() : LineText(LineWriter::blockSize, false) {}

    [[nodiscard]] std::string_view view() const noexcept {
        return {buffer_.get(), static_cast<std::size_t>(end_ - buffer_.get())};
    }
    void clear() noexcept {
        end_ = buffer_.get();
        lines_ = 0;
    }

protected:
    void makeRoom(std::size_t size) override {
        const std::size_t filled = view().size();
        const std::size_t capacity =
            std::max(filled + size, 2 * static_cast<std::size_t>(limit_ - buffer_.get()));
        auto larger = std::make_unique_for_overwrite<char[]>(capacity);
        std::memcpy(larger.get(), buffer_.get(), filled);
        buffer_ = std::move(larger);
        end_ = buffer_.get() + filled;
        limit_ = buffer_.get() + capacity;
    }
};

} // namespace

LineText::LineText(std::size_t capacity, bool handsOverEachLine)
    : buffer_(std::make_unique_for_overwrite<char[]>(capacity)),
      end_(buffer_.get()),
      limit_(buffer_.get() + capacity),
      handsOverEachLine_(handsOverEachLine) {}

LineText::~LineText() = default;

LineWriter::LineWriter(std::ofstream& stream, bool flushEachLine)
    : LineText(blockSize, flushEachLine),
      stream_(stream) {}

LineWriter::~LineWriter() {
    finish();
}

void LineText::text(std::string_view text) {
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, LineWriter::blockSize);
        std::memcpy(reserve(piece.size()), piece.data(), piece.size());
        end_ += piece.size();
        text.remove_prefix(piece.size());
    }
}

void LineText::fixed(double value, int decimals) {
    appendFixedInPieces(value, decimals);
}

void LineText::fixed(long double value, int decimals) {
    appendFixedInPieces(value, decimals);
}

template <class T>
void LineText::appendFixedInPieces(T value, int decimals) {
    // After the place of the last bit all decimals are 0; a host may ask for two billion of them.
    constexpr int lastBit = std::numeric_limits<T>::digits - std::numeric_limits<T>::min_exponent;
    const int computed = std::min(decimals, lastBit);
    commit(appendFixed(reserve(fixedTextSize<T>(computed)), value, computed));
    if (computed == decimals || !std::isfinite(value))
        return;
    for (auto missing = static_cast<std::size_t>(decimals - computed); missing > 0;) {
        const std::size_t piece = std::min(missing, LineWriter::blockSize);
        std::memset(reserve(piece), '0', piece);
        end_ += piece;
        missing -= piece;
    }
}

void LineWriter::finish() noexcept {
    handOver();
    flushLine();
}

bool LineWriter::failed() const noexcept {
    return stream_.fail();
}

void LineWriter::makeRoom(std::size_t size) {
    handOver();
    const auto capacity = static_cast<std::size_t>(limit_ - buffer_.get());
    if (capacity < size) {
        buffer_ = std::make_unique_for_overwrite<char[]>(size);
        end_ = buffer_.get();
        limit_ = buffer_.get() + size;
    }
}

void LineWriter::flushLine() noexcept {
    handOver();
    try {
        errno = 0;
        stream_.flush();
    } catch (const std::exception&) {
        // The stream keeps its state, which failed() shows.
    }
    noteError();
}

void LineWriter::noteError() noexcept {
    if (error_ == 0 && stream_.fail())
        error_ = errno;
}

void LineWriter::composeInBlocks(std::size_t count, std::size_t block, Anchor::Workers* workers,
                                 const Compose& compose, const Appended& appended) {
    const std::size_t blocks = count / block + (count % block != 0 ? 1 : 0);
    const auto endOf = [&](std::size_t number) { return number + 1 < blocks ? (number + 1) * block : count; };
    if (Anchor::workerCount(workers) == 1) {
        for (std::size_t number = 0; number < blocks; ++number) {
            compose(*this, number * block, endOf(number));
            appended(number * block, endOf(number));
        }
        return;
    }
    constexpr std::size_t blocksAWorker = 4;
    struct Slot {
        MemoryText text;
        std::atomic<bool> isDone = false;
    };
    std::vector<Slot> slots(std::min<std::size_t>(blocks, blocksAWorker * workers->count()));
    for (std::size_t first = 0; first < blocks; first += slots.size()) {
        const auto inUse = std::span(slots).first(std::min(slots.size(), blocks - first));
        std::size_t place = 0;
        // By the calling thread while the others go on.
        const auto appendDone = [&] {
            for (; place < inUse.size() && inUse[place].isDone; ++place) {
                Slot& slot = inUse[place];
                append(slot.text.view(), slot.text.lines());
                slot.text.clear();
                slot.isDone = false;
                appended((first + place) * block, endOf(first + place));
            }
        };
        const auto make = [&](std::size_t i) {
            compose(inUse[i].text, (first + i) * block, endOf(first + i));
            inUse[i].isDone = true;
        };
        Anchor::runPieces(workers, inUse.size(), make, appendDone);
        appendDone();
    }
}

/// Appends text that is composed already, in which `ended` lines end.
void LineWriter::append(std::string_view lines, std::uint64_t ended) {
    lines_ += ended;
    if (!handsOverEachLine_) {
        handOver();
        write(lines);
        return;
    }
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const bool isComplete = end < lines.size();
        text(lines.substr(0, isComplete ? end + 1 : end));
        if (isComplete)
            flushLine();
        lines.remove_prefix(isComplete ? end + 1 : end);
    }
}

void LineWriter::handOver() noexcept {
    const std::string_view text(buffer_.get(), static_cast<std::size_t>(end_ - buffer_.get()));
    end_ = buffer_.get();
    write(text);
}

void LineWriter::write(std::string_view text) noexcept {
    if (text.empty())
        return;
    bytes_ += text.size();
    try {
        errno = 0;
        stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
    } catch (const std::exception&) {
        // The stream keeps its state, which failed() shows.
    }
    noteError();
}

} // namespace ConvLib
