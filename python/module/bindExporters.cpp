// SPDX-License-Identifier: Apache-2.0
#include "anchor/LoaderProgress.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "python/module/Name.hpp"
#include "python/module/Operation.hpp"
#include "python/module/bind.hpp"
#include "python/module/errors.hpp"
#include "python/module/handles.hpp"

#include <array>
#include <map>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

namespace Tidewatch::Python {

namespace {

using ConvLib::BasicConverterDefs;

/// A progress reporter in Python: what it returns is its answer, and None means to go on.
class Reporter final : public Anchor::LoaderProgress {
public:
    explicit Reporter(const py::object& callable) : callable_(shared(callable)) {}

    bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) override {
        const py::gil_scoped_acquire lock;
        const py::object answer = (*callable_)(textOf(text), current, total);
        return answer.is_none() || answer.cast<bool>();
    }

private:
    SharedObject callable_;
};

/// An exporter, and what it needs beside its settings.
template <class Exporter>
struct Hosted {
    Exporter exporter;
    SharedState bundle;
    py::object progress = py::none();
    bool isRunning = false;

    /// Settings are not changed while the exporter reads them.
    Exporter& settings() {
        if (isRunning)
            raise(PyExc_RuntimeError, "the exporter is running");
        return exporter;
    }
};

template <class Exporter>
bool run(Hosted<Exporter>& hosted) {
    Exporter& exporter = hosted.settings();
    exporter.bundleptr = hosted.bundle ? hosted.bundle->inputs.bundle() : Anchor::StrongPtr<Sheaf::Bundle>();
    exporter.Progress = hosted.progress.is_none() ? Anchor::StrongPtr<Anchor::LoaderProgress>()
                                                  : Anchor::makeStrong<Reporter>(hosted.progress);
    std::optional<InUse> used;
    if (hosted.bundle)
        used.emplace(hosted.bundle);
    struct Running {
        explicit Running(bool& is) : isRunning(is) { isRunning = true; }
        ~Running() { isRunning = false; }
        bool& isRunning;
    } const running(hosted.isRunning);
    return perform(py::none(), [&](const Anchor::StrongPtr<Operation>& operation) {
        exporter.setStopQuestion([operation] { operation->check(); });
        struct Unset {
            ~Unset() { exporter.setStopQuestion({}); }
            Exporter& exporter;
        } const unset{exporter};
        return exporter.Run();
    });
}

std::vector<Name> asNames(const std::vector<std::string>& texts) {
    std::vector<Name> names;
    for (const std::string& text : texts)
        names.push_back({text});
    return names;
}

std::vector<std::string> asTexts(const std::vector<Name>& names) {
    std::vector<std::string> texts;
    for (const Name& name : names)
        texts.push_back(name.bytes);
    return texts;
}

py::list writtenFilesOf(const BasicConverterDefs& exporter) {
    py::list files;
    const py::object type = py::module_::import("tidewatch._types").attr("WrittenFile");
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles())
        files.append(type(Name{file.path}, file.bytes, file.items, file.failed, file.error, file.time,
                          Name{file.grid}));
    return files;
}

/// Defines a setting that is a member of the exporter.
template <class Exporter, class Value>
void bindMember(py::class_<Hosted<Exporter>>& type, const char* name, Value Exporter::*member) {
    type.def_property(
        name, [member](const Hosted<Exporter>& self) { return self.exporter.*member; },
        [member](Hosted<Exporter>& self, const Value& value) { self.settings().*member = value; });
}

template <class Exporter>
void bindNames(py::class_<Hosted<Exporter>>& type, const char* name,
               std::vector<std::string> Exporter::*member) {
    type.def_property(
        name, [member](const Hosted<Exporter>& self) { return asNames(self.exporter.*member); },
        [member](Hosted<Exporter>& self, const std::vector<Name>& names) {
            self.settings().*member = asTexts(names);
        });
}

template <class Exporter>
py::class_<Hosted<Exporter>> bindExporter(py::module_& module, const char* name, const char* text) {
    using Self = Hosted<Exporter>;
    py::class_<Self> type(module, name, text);
    type.def(py::init<>())
        .def(
            "run", run<Exporter>,
            "Does the export: true if the bundle was gone through. Output errors are in written_files alone, others in "
            "errors. Exceptions of readers and of progress pass through.")
        .def_property(
            "bundle",
            [](const Self& self) -> py::object {
                return self.bundle ? py::cast(BundleHandle(self.bundle)) : py::none();
            },
            [](Self& self, const std::optional<BundleHandle>& bundle) {
                static_cast<void>(self.settings());
                self.bundle = bundle ? bundle->state() : nullptr;
            })
        .def_property(
            "output_path", [](const Self& self) { return Name{self.exporter.OutputPath}; },
            [](Self& self, const py::object& path) {
                self.settings().OutputPath =
                    py::module_::import("os").attr("fsencode")(path).template cast<std::string>();
            })
        .def_property(
            "progress", [](const Self& self) { return self.progress; },
            [](Self& self, const py::object& callable) {
                static_cast<void>(self.settings());
                self.progress = callable;
            })
        .def_property(
            "flush_lines", [](const Self& self) { return self.exporter.FlushLines(); },
            [](Self& self, bool flush) { self.settings().setFlushLines(flush); })
        .def_property(
            "time_filter",
            [](const Self& self) {
                std::vector<std::pair<double, double>> ranges;
                for (const auto& range : self.exporter.TimeFilter)
                    ranges.emplace_back(range.first, range.last);
                return ranges;
            },
            [](Self& self, const std::vector<std::pair<double, double>>& ranges) {
                self.settings().TimeFilter.clear();
                for (const auto& [first, last] : ranges)
                    self.exporter.TimeFilter.push_back({first, last});
            })
        .def_property_readonly("errors", [](const Self& self) { return asNames(self.exporter.Errors); })
        .def_property_readonly("written_files",
                               [](const Self& self) { return writtenFilesOf(self.exporter); })
        .def("print_parameters", [](Self& self) { return textOf(self.settings().printParameters()); })
        .def("print_secondary", [](Self& self) { return textOf(self.settings().printSecondary()); });
    bindNames<Exporter>(type, "grid_filter", &Exporter::GridFilter);
    bindNames<Exporter>(type, "field_filter", &Exporter::FieldFilter);
    return type;
}

} // namespace

void bindExporters(py::module_& module) {
    using Las = ExportLib::ExportPointCloudToLas;
    using Pcd = ExportLib::ExportPointCloudToPCD;
    using Ascii = ExportLib::ExportPointCloudToASCII;

    auto las = bindExporter<Las>(
        module, "ExportPointCloudToLas",
        "The LAS exporter with its settings as attributes; tidewatch.las does more around it. docs/las.md");
    bindMember(las, "day", &Las::Day);
    bindMember(las, "year", &Las::Year);
    bindMember(las, "ref_level", &Las::RefLevel);
    bindMember(las, "tiles", &Las::tiles);
    bindMember(las, "version", &Las::Version);
    bindMember(las, "uncompressed", &Las::uncompressed);
    bindMember(las, "point_source_id", &Las::PointSourceID);
    las.def_property(
           "rename_map",
           [](const Hosted<Las>& self) {
               py::dict names;
               for (const auto& [field, attribute] : self.exporter.RenameMap)
                   names[py::cast(Name{field})] = Name{attribute};
               return names;
           },
           [](Hosted<Las>& self, const py::dict& names) {
               std::map<std::string, std::string> map;
               for (const auto& [field, attribute] : names)
                   map[field.cast<Name>().bytes] = attribute.cast<Name>().bytes;
               self.settings().RenameMap = std::move(map);
           })
        .def_property_readonly("fragment_count",
                               [](const Hosted<Las>& self) { return self.exporter.FragmentCount; })
        .def_property(
            "carry", [](const Hosted<Las>& self) { return self.exporter.Carry(); },
            [](Hosted<Las>& self, bool carry) { self.settings().setCarry(carry); })
        .def_property(
            "conforming", [](const Hosted<Las>& self) { return self.exporter.Conforming(); },
            [](Hosted<Las>& self, bool conforming) { self.settings().setConforming(conforming); })
        .def_property(
            "step", [](const Hosted<Las>& self) { return self.exporter.Step(); },
            [](Hosted<Las>& self, const std::optional<std::array<double, 3>>& step) {
                self.settings().setStep(step);
            })
        .def_property(
            "offset", [](const Hosted<Las>& self) { return self.exporter.Offset(); },
            [](Hosted<Las>& self, const std::optional<std::array<double, 3>>& offset) {
                self.settings().setOffset(offset);
            });

    auto pcd = bindExporter<Pcd>(
        module, "ExportPointCloudToPCD",
        "The PCD exporter with its settings as attributes; tidewatch.pcd does more around it. docs/pcd.md");
    bindMember(pcd, "ref_level", &Pcd::RefLevel);
    bindMember(pcd, "precision", &Pcd::Precision);
    bindMember(pcd, "cell_size", &Pcd::CellSize);
    bindMember(pcd, "exact_counts", &Pcd::ExactCounts);
    bindMember(pcd, "thinning", &Pcd::Thinning);

    auto ascii = bindExporter<Ascii>(
        module, "ExportPointCloudToASCII",
        "The exporter of text with its settings as attributes; tidewatch.ascii does more around it. docs/ascii.md");
    bindMember(ascii, "filter_field", &Ascii::FilterField);
    bindMember(ascii, "ref_level", &Ascii::RefLevel);
    bindMember(ascii, "precision", &Ascii::Precision);
    bindMember(ascii, "append", &Ascii::Append);
    bindMember(ascii, "tile_suffix", &Ascii::TileSuffix);
    ascii.def_property(
        "cell_type_filter",
        [](const Hosted<Ascii>& self) {
            std::vector<std::pair<double, double>> ranges;
            for (const auto& range : self.exporter.CellTypeFilter.ranges())
                ranges.emplace_back(range.low, range.high);
            return ranges;
        },
        [](Hosted<Ascii>& self, const std::vector<std::pair<double, double>>& ranges) {
            self.settings().CellTypeFilter = {};
            for (const auto& [low, high] : ranges)
                self.exporter.CellTypeFilter.add(low, high);
        });
}

} // namespace Tidewatch::Python
