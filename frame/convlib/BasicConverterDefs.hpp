// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
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

/// Base of every converter: the parameters that all of them share, and the contract with the host.
///
/// A host constructs an exporter, sets the parameters, optionally loads files, and calls Run() once, on the
/// thread on which it wants the work done. Exceptions of readers, of progress reporters and of the file
/// system pass through Run(). The order of the virtual operations and of the first four members is part of
/// the contract with exporters that are compiled elsewhere.
class TIDEWATCH_API BasicConverterDefs {
public:
    /// How much loadFilesIntoBundle reads at once.
    enum myReadType {
        /// Structure and all arrays; they stay in memory until the converter is gone.
        ReadEverything,
        /// The structure; arrays follow on demand and belong to the memory cache.
        ReadStructure
    };

    virtual ~BasicConverterDefs();

    /// The settings of the converter's own, each as a new line, a label, the value and a blank. The base
    /// lists those of its own settings that are not at their defaults.
    virtual std::string printSecondary();

    /// Whether a grid is to be exported: its name matches one of GridFilter, or there is no filter.
    virtual bool UseThisGrid(const std::string& name) const;

    /// Whether a time slice is to be exported: its time lies in one of TimeFilter, or there is no filter.
    virtual bool UseThisTime(const double& time) const;

    /// Whether a field is to be exported: its name matches one of FieldFilter, or there is no filter.
    virtual bool UseThisField(const std::string& name);

    /// Does the conversion. True when the walk over the bundle was completed, false when it could not start;
    /// texts about what went wrong are in Errors.
    virtual bool Run() = 0;

    /// Fills the bundle behind bundleptr from InputFiles, in their order, through the registered readers.
    /// Throws Anchor::ModelError without a live bundle, and what readFile() and the readers throw.
    virtual void loadFilesIntoBundle(myReadType how);

    /// The common parameters as text, in the form of printSecondary(): where output goes, the filters that are set, what
    /// is added to grids, and those settings of the exporter that stand in ownSettings().
    [[nodiscard]] std::string printParameters();

    // The four members that exporters read, in this order.

    /// The bundle to read. The host keeps it alive through a StrongPtr of its own (Anchor::makeStrong). A
    /// bundle that no StrongPtr has ever held, as one on the stack, reads as expired, and so as no bundle.
    Anchor::WeakPtr<Sheaf::Bundle> bundleptr;
    /// The output file or directory; each exporter says how it takes it.
    std::string OutputPath;
    /// Texts about what went wrong.
    std::vector<std::string> Errors;
    /// The host's progress reporter; may be null.
    Anchor::StrongPtr<Anchor::LoaderProgress> Progress;

    /// A range of times; both ends belong to it.
    struct TimeRange {
        double first;
        double last;
    };

    /// An empty filter lets everything pass. Globs are those of globMatches(); each also matches itself.
    std::vector<TimeRange> TimeFilter;
    std::vector<std::string> GridFilter;
    std::vector<std::string> FieldFilter;

    /// Whether each line of a text file reaches the system as soon as it is complete (true unless set
    /// otherwise). Hosts that show only finished files set it false: lines then leave in large blocks.
    [[nodiscard]] bool FlushLines() const noexcept;
    void setFlushLines(bool flush) noexcept;

    /// Follows the run; null unless set. See RunObserver.
    [[nodiscard]] const Anchor::StrongPtr<RunObserver>& Observer() const noexcept;
    void setObserver(Anchor::StrongPtr<RunObserver> observer) noexcept;

    /// Asked often while Run() works, at least every stopInterval points, lines or cells: a host that wants to stop
    /// throws, and what it throws passes through Run(). Empty unless set. Unlike Progress it tells nothing and is
    /// asked in the middle of a file, too.
    void setStopQuestion(std::function<void()> mayGoOn) noexcept;
    static constexpr std::size_t stopInterval = 65536;

    /// What the files of a grid are to have besides; none unless set. Nothing is set by an empty value.
    void setAdditions(double time, const std::string& grid, GridAdditions additions);
    [[nodiscard]] const GridAdditions& additions(double time, const std::string& grid) const noexcept;

    /// For exporters: those of the grid at hand.
    [[nodiscard]] const GridAdditions& additions() const noexcept;

    /// For exporters: asks the stop question.
    void askWhetherToStop() const;

    /// For exporters: a grid that the filters let pass is taken up. The observer is told, and the records of files
    /// written from now on name the grid.
    void takeUpGrid(double time, const std::string& grid);

    /// One record per output file, in the order of writing.
    [[nodiscard]] const std::vector<WrittenFile>& writtenFiles() const noexcept;

    /// The files that loadFilesIntoBundle reads, and how.
    void setInputFiles(std::vector<std::string> files, ReadOptions options = {});

    /// What is to be said about the files that were loaded, in their order.
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

    /// For exporters: appends the record of a file that has been written for the grid at hand.
    void recordWrittenFile(WrittenFile file);

private:
    // Everything of our own lies behind one pointer, so that additions move nobody's members.
    struct Own;
    std::unique_ptr<Own> own_;
};

} // namespace ConvLib
