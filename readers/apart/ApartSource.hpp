// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/ReadingServer.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Source.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Tidewatch {

/// An input that a process of its own reads. Its errors are those of a Source in this process; where the process
/// dies, or has used 20 s of processor time without a word, the error is an Anchor::FormatError that says so, and
/// the source is then of no more use.
class ApartSource final : public Source {
public:
    /// Starts the process and hands it the files; it has given up everything else before it reads of them.
    ApartSource(ModuleKind kind, const SourceFiles& files, std::uint64_t most);
    ~ApartSource() override;
    ApartSource(const ApartSource&) = delete;
    ApartSource& operator=(const ApartSource&) = delete;

    /// SourceModule::recognises().
    [[nodiscard]] bool isRecognised();

    [[nodiscard]] Structure structure(const Tick& tick) override;
    [[nodiscard]] std::vector<std::string> read(const Structure::Array& array, std::span<std::byte> target,
                                                std::uint64_t most, const Tick& tick) override;
    [[nodiscard]] bool isUsable() const override;

    /// How long a process may use a processor without a word; tests make it shorter.
    static std::chrono::nanoseconds patience;

private:
    /// Sends a request and waits for its answer; tells progress meanwhile. Throws the error that is the answer.
    [[nodiscard]] std::string ask(Apart::MessageType request, const Apart::MessageWriter& payload,
                                  std::span<const int> descriptors, Apart::MessageType answer,
                                  const std::string& object, const Tick& tick);
    [[noreturn]] void fail(const std::string& object, const std::string& what);

    std::string path_;
    /// What the process fills; kept, since new memory takes its time, unless it is large.
    Apart::Descriptor memory_;
    std::uint64_t memorySize_ = 0;
    Apart::ReadingServer::Child child_;
    bool isLost_ = false;
};

} // namespace Tidewatch
