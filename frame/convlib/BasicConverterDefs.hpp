// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
#include "anchor/Workers.hpp"
#include "convlib/GridAdditions.hpp"
#include "convlib/InputReport.hpp"
#include "convlib/ReadOptions.hpp"
#include "convlib/RunObserver.hpp"
#include "convlib/WrittenFile.hpp"
#include "sheaf/Bundle.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace ConvLib {

/// Base class of all converters: their common parameters, and the contract with the host.
///
/// A host constructs an exporter, sets the parameters, optionally loads files, and calls Run() once, on the thread on
/// which it wants the work done. Exceptions from readers, progress reporters and the file system pass through Run().
/// The order of the virtual functions and of the first four members is part of the contract with exporters that are
/// compiled elsewhere.
class TIDEWATCH_API BasicConverterDefs {
public:
    /// How much loadFilesIntoBundle reads at once.
    enum myReadType {
        /// Structure and all arrays; they stay in memory until the converter is destroyed.
        ReadEverything,
        /// Only the structure; arrays are read on demand and belong to the memory cache.
        ReadStructure
    };

    virtual ~BasicConverterDefs();

    /// The converter's own settings, each as a newline, a label, the value and a blank. The base class lists those of
    /// its settings that are not at their defaults.
    virtual std::string printSecondary();

    /// Whether a grid is to be exported: true if its name matches an entry of GridFilter, or if that is empty.
    virtual bool UseThisGrid(const std::string& name) const;

    /// Whether a time slice is to be exported: true if its time is in a range of TimeFilter, or if that is empty.
    virtual bool UseThisTime(const double& time) const;

    /// Whether a field is to be exported: true if its name matches an entry of FieldFilter, or if that is empty.
    virtual bool UseThisField(const std::string& name);

    /// Does the conversion. True if the traversal of the bundle was completed, false if it could not start; error
    /// messages are in Errors.
    virtual bool Run() = 0;

    /// Fills the bundle behind bundleptr from InputFiles, in their order, through the registered readers.
    /// Throws Anchor::ModelError without a live bundle, and what readFile() and the readers throw.
    virtual void loadFilesIntoBundle(myReadType how);

    /// The common parameters as text, in the form of printSecondary(): the output path, the filters that are set,
    /// what is added to grids, and the settings in ownSettings().
    [[nodiscard]] std::string printParameters();

    // The four members that exporters read, in this order.

    /// The bundle to read. The host keeps it alive through its own StrongPtr (Anchor::makeStrong). A bundle that no
    /// StrongPtr has ever held, such as one on the stack, reads as expired, as if there were none.
    Anchor::WeakPtr<Sheaf::Bundle> bundleptr;
    /// The output file or directory; each exporter documents how it uses it.
    std::string OutputPath;
    /// Error messages of the run.
    std::vector<std::string> Errors;
    /// The host's progress reporter; may be null.
    Anchor::StrongPtr<Anchor::LoaderProgress> Progress;

    /// A range of times; both ends belong to it.
    struct TimeRange {
        double first;
        double last;
    };

    /// An empty filter selects everything. Globs are those of globMatches(); each also matches itself literally.
    std::vector<TimeRange> TimeFilter;
    std::vector<std::string> GridFilter;
    std::vector<std::string> FieldFilter;

    /// Whether each line of a text file is handed to the system as soon as it is complete (the default). Hosts that
    /// show only finished files set it to false: lines are then written in large blocks.
    [[nodiscard]] bool FlushLines() const noexcept;
    void setFlushLines(bool flush) noexcept;

    /// Observes the run; null unless set. See RunObserver.
    [[nodiscard]] const Anchor::StrongPtr<RunObserver>& Observer() const noexcept;
    void setObserver(Anchor::StrongPtr<RunObserver> observer) noexcept;

    /// Called often during Run(), at least every stopInterval points, lines or cells: a host that wants to stop throws,
    /// and the exception passes through Run(). Empty unless set. Unlike Progress it gets no information and is also
    /// called in the middle of a file.
    void setStopQuestion(std::function<void()> mayGoOn) noexcept;
    static constexpr std::size_t stopInterval = 65536;

    /// With whom Run() does its work; null unless set: on the calling thread only. The output is the same.
    void setWorkers(Anchor::StrongPtr<Anchor::Workers> workers) noexcept;
    [[nodiscard]] Anchor::Workers* workers() const noexcept;

    /// What the files of a grid are to have besides; none unless set. Nothing is set by an empty value.
    void setAdditions(double time, const std::string& grid, GridAdditions additions);
    [[nodiscard]] const GridAdditions& additions(double time, const std::string& grid) const noexcept;

    /// For exporters: those of the current grid.
    [[nodiscard]] const GridAdditions& additions() const noexcept;

    /// For exporters: calls the stop question.
    void askWhetherToStop() const;

    /// For exporters: starts a grid that the filters let pass. The observer is notified, and the records of files
    /// written from now on name the grid.
    void takeUpGrid(double time, const std::string& grid);

    /// One record per output file, in the order of writing.
    [[nodiscard]] const std::vector<WrittenFile>& writtenFiles() const noexcept;

    /// The files that loadFilesIntoBundle reads, and how.
    void setInputFiles(std::vector<std::string> files, ReadOptions options = {});

    /// Reports about the files that were loaded, in their order.
    [[nodiscard]] std::span<const Anchor::StrongPtr<InputReport>> inputReports() const noexcept;

protected:
    BasicConverterDefs();
    BasicConverterDefs(const BasicConverterDefs&) = delete;
    BasicConverterDefs& operator=(const BasicConverterDefs&) = delete;

    /// Settings of an exporter that came later than its members, so that these stay where they are.
    class TIDEWATCH_API OwnSettings {
    public:
        virtual ~OwnSettings();
        /// Those that are not at their defaults, in the form of printSecondary().
        [[nodiscard]] virtual std::string print() const = 0;
    };

    /// For exporters: such settings; null unless set.
    [[nodiscard]] OwnSettings* ownSettings() const noexcept;
    void setOwnSettings(std::unique_ptr<OwnSettings> settings) noexcept;

    /// For exporters: appends the record of a file that has been written for the current grid.
    void recordWrittenFile(WrittenFile file);

private:
    // All other data is behind one pointer, so that additions do not change the layout of derived classes.
    struct Own;
    std::unique_ptr<Own> own_;
};

} // namespace ConvLib
