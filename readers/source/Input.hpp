// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "convlib/ReadOptions.hpp"
#include "readers/InputFile.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Source.hpp"
#include "readers/source/modules.hpp"

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// One input file that is read through a module, apart or in this process. Shared by the creators of its arrays
/// and its report.
///
/// At most eight inputs have their files open, and a process where they are read apart; of an input that has not
/// been asked for the longest time both end, and are there again when it is asked, its files as they were (else
/// Anchor::FileError). Threads that ask at the same time wait for each other.
class Input {
public:
    /// Opens the file. Throws Anchor::FileError.
    Input(std::string path, ConvLib::ReadOptions options, ModuleKind kind, Reading reading);
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const ConvLib::ReadOptions& options() const noexcept { return options_; }
    /// An input that was made to recognise the file gets the options with which it is then read.
    void setOptions(ConvLib::ReadOptions options) { options_ = std::move(options); }

    /// Whether the file at the path is still the one that was first opened, and unchanged.
    [[nodiscard]] bool isAsItWas() const;

    /// SourceModule::recognises().
    [[nodiscard]] bool isRecognised();

    /// Source::structure(). Throws Anchor::FileError also when the file changed meanwhile.
    [[nodiscard]] Structure structure();

    /// Source::read(). Throws Anchor::FileError also when the file has changed since it was first opened.
    void read(const Structure::Array& array, std::span<std::byte> target);

    /// What reading has found that is not carried.
    [[nodiscard]] std::vector<std::string> remarks() const;

    /// Tells the host how far the array in hand is; the host may throw.
    void tick(double share) const {
        if (options_.Tick)
            options_.Tick(path_, share);
    }

    /// Whether the file of a path is that of an input that exists.
    [[nodiscard]] static bool isInput(const std::string& path);

    /// How many inputs may have their files open.
    static constexpr std::size_t mostOpen = 8;

private:
    friend class OpenInputs;

    /// What is there while the input is open.
    struct Live {
        std::vector<InputFile> opened;
        SourceFiles files;
        std::unique_ptr<Source> source;
    };

    void open(Live& live);
    void openFiles(Live& live);
    /// Calls with the open source; closes it when the call ends by an error.
    template <class Call>
    auto withSource(Call&& call);
    void requireUnchanged(const Live& live) const;

    std::string path_;
    ConvLib::ReadOptions options_;
    ModuleKind kind_;
    Reading reading_;
    /// Of the file and of those beside it, when they were first opened.
    std::vector<std::pair<std::string, Anchor::FileState>> states_;
    mutable std::mutex remarksMutex_;
    std::vector<std::string> remarks_;

    // Guarded by OpenInputs.
    std::unique_ptr<Live> live_;
    bool isBusy_ = false;
};

} // namespace Tidewatch
