// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "convlib/ReadOptions.hpp"
#include "readers/InputFile.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Source.hpp"
#include "readers/source/modules.hpp"

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Tidewatch {

/// An input file that is read through a module, in a separate process or in this one. Shared by the creators
/// of its arrays and its report.
///
/// At most eight inputs have open files and, if they are read in separate processes, a process. The least
/// recently used input is closed and reopened on demand; its files must not have changed (else
/// Anchor::FileError). Concurrent calls wait for each other.
class Input {
public:
    /// Opens the file. Throws Anchor::FileError.
    Input(std::string path, ConvLib::ReadOptions options, ModuleKind kind, Reading reading);
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const ConvLib::ReadOptions& options() const noexcept { return options_; }
    /// Sets the options of an input that was created only to recognise the file.
    void setOptions(ConvLib::ReadOptions options) { options_ = std::move(options); }

    /// Whether the file at the path is still the one first opened, and unchanged.
    [[nodiscard]] bool isAsItWas() const;

    /// SourceModule::recognises().
    [[nodiscard]] bool isRecognised();

    /// Source::structure(). Throws Anchor::FileError also when the file changed meanwhile.
    [[nodiscard]] Structure structure();

    /// Source::read(). Throws Anchor::FileError also when the file has changed since it was first opened.
    void read(const Structure::Array& array, ArrayMemory& target);

    /// For InputReport::notCarried.
    [[nodiscard]] std::vector<std::string> notCarried() const;

    /// For InputReport::lostByCellTypes: what reading arrays has found.
    [[nodiscard]] std::vector<std::string> lostByCellTypes() const;

    /// Reports the progress of the current array to the host, which may throw.
    void tick(double share) const {
        if (options_.Tick)
            options_.Tick(path_, share);
    }

    /// Whether the file at a path belongs to an existing input.
    [[nodiscard]] static bool isInput(const std::string& path);

    /// The max number of inputs with open files.
    static constexpr std::size_t mostOpen = 8;

private:
    friend class OpenInputs;

    /// The state of an open input.
    struct Live {
        std::vector<InputFile> opened;
        SourceFiles files;
        std::unique_ptr<Source> source;
    };

    void open(Live& live);
    void openFiles(Live& live);
    /// Calls `call` with the open source; closes it if the source is then unusable.
    template <class Call>
    auto withSource(Call&& call);
    void requireUnchanged(const Live& live) const;

    std::string path_;
    ConvLib::ReadOptions options_;
    ModuleKind kind_;
    Reading reading_;
    /// The states of the file and its companions when they were first opened.
    std::vector<std::pair<std::string, Anchor::FileState>> states_;
    mutable std::mutex remarksMutex_;
    std::vector<std::string> notCarried_;
    std::vector<std::string> lostByCellTypes_;

    // Guarded by OpenInputs.
    /// Its entry for the list of open inputs, while it is not there.
    std::list<Input*> place_;
    std::unique_ptr<Live> live_;
    bool isBusy_ = false;
};

} // namespace Tidewatch
