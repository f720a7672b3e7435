// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/ReadingServer.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Source.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Tidewatch {

/// An input that is read in a separate process. Its errors are those of a Source in this process; if the
/// process dies, or uses 20 s of processor time without sending anything, the error is an Anchor::FormatError
/// that says so, and the source is no longer usable.
class ApartSource final : public Source {
public:
    /// Starts the process and hands it the files; it enters its sandbox before it reads them.
    ApartSource(ModuleKind kind, const SourceFiles& files, std::uint64_t most);
    ~ApartSource() override;
    ApartSource(const ApartSource&) = delete;
    ApartSource& operator=(const ApartSource&) = delete;

    /// SourceModule::recognises().
    [[nodiscard]] bool isRecognised();

    [[nodiscard]] Structure structure(const Tick& tick) override;
    [[nodiscard]] std::vector<std::string> read(const Structure::Array& array, ArrayMemory& target,
                                                std::uint64_t most, const Tick& tick) override;
    [[nodiscard]] bool isUsable() const override;

    /// How much processor time a process may use without sending anything; tests make it shorter.
    static std::chrono::nanoseconds patience;

private:
    class Transfer;

    /// Sends a request and waits for its answer; reports progress meanwhile, and takes the pieces of an array (`transfer`,
    /// null for other requests). If the answer is an error, throws it.
    [[nodiscard]] std::string ask(Apart::MessageType request, const Apart::MessageWriter& payload,
                                  std::span<const int> descriptors, Apart::MessageType answer,
                                  const std::string& object, const Tick& tick, Transfer* transfer = nullptr);
    [[noreturn]] void fail(const std::string& object, const std::string& what);

    std::string path_;
    /// What the process fills with pieces of arrays; kept unless it is large, since new memory costs time.
    Apart::Descriptor memory_;
    std::uint64_t memorySize_ = 0;
    Apart::ReadingServer::Child child_;
    bool isLost_ = false;
};

} // namespace Tidewatch
