// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "library/crs/ReferenceSystem.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"
#include "python/module/Name.hpp"
#include "python/module/Operation.hpp"
#include "python/module/arrayFrom.hpp"
#include "python/module/bind.hpp"
#include "python/module/errors.hpp"
#include "python/module/handles.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include <pybind11/stl.h>

namespace Tidewatch::Python {

namespace {

using Triple = std::array<double, 3>;
using Fragment = Anchor::StrongPtr<Sheaf::FragmentID>;

std::vector<Name> asNames(const std::vector<std::string>& texts) {
    std::vector<Name> names;
    for (const std::string& text : texts)
        names.push_back({text});
    return names;
}

// Bundles and slices

std::vector<double> timesOf(const BundleHandle& bundle) {
    std::vector<double> times;
    for (const auto& [time, slice] : bundle.state()->bundle().slices()) {
        if (!slice.expired())
            times.push_back(time);
    }
    return times;
}

std::optional<SliceHandle> findSlice(const BundleHandle& bundle, double time) {
    if (std::isnan(time))
        return std::nullopt; // which a map would find anywhere
    const auto& slices = bundle.state()->bundle().slices();
    const auto found = slices.find(time);
    auto slice = found != slices.end() ? found->second.lock() : nullptr;
    return slice ? std::optional(SliceHandle{bundle.state(), std::move(slice)}) : std::nullopt;
}

SliceHandle sliceAt(const BundleHandle& bundle, double time) {
    auto slice = findSlice(bundle, time);
    if (!slice) {
        std::vector<std::string> texts;
        for (const double other : timesOf(bundle))
            texts.push_back(shortestText(other));
        raise(PyExc_KeyError,
              "there is no slice at time " + shortestText(time) + "; there are " + listed(texts));
    }
    return *slice;
}

SliceHandle madeSlice(const BundleHandle& bundle, double time) {
    if (auto slice = findSlice(bundle, time))
        return *slice;
    requireUnused(*bundle.state());
    return {bundle.state(), bundle.state()->bundle().makeSlice(time)};
}

std::vector<std::string> gridsOf(const SliceHandle& slice) {
    std::vector<std::string> names;
    for (const auto& [name, grid] : slice.slice->grids()) {
        if (!grid.expired())
            names.push_back(name);
    }
    return names;
}

std::optional<GridHandle> findGrid(const SliceHandle& slice, const std::string& name) {
    const auto found = slice.slice->grids().find(name);
    auto grid = found != slice.slice->grids().end() ? found->second.lock() : nullptr;
    return grid ? std::optional(GridHandle{slice.state, slice.slice->time(), std::move(grid)}) : std::nullopt;
}

GridHandle gridNamed(const SliceHandle& slice, const std::string& name) {
    auto grid = findGrid(slice, name);
    if (!grid)
        raise(PyExc_KeyError, "there is no grid \"" + name + "\" at time " +
                                  shortestText(slice.slice->time()) + "; there are " +
                                  listed(gridsOf(slice)));
    return *grid;
}

// Reference systems

WantedSystem systemFrom(const std::optional<Name>& text) {
    if (!text)
        return {};
    if (text->bytes.find('[') == std::string::npos)
        return wantedSystem(text->bytes);
    static_cast<void>(ReferenceSystem::fromText(text->bytes));
    return {text->bytes};
}

std::optional<Name> systemOf(const GridHandle& grid) {
    const GridSystem system = GridSystem::of(*grid.grid);
    if (system.system) {
        if (std::string code = system.system->codeText(); !code.empty())
            return Name{std::move(code)};
    }
    return system.text.empty() ? std::nullopt : std::optional(Name{system.text});
}

std::optional<Name> systemTextOf(const GridHandle& grid) {
    const GridSystem system = GridSystem::of(*grid.grid);
    return system.text.empty() ? std::nullopt : std::optional(Name{system.text});
}

void setSystemOf(const GridHandle& grid, const std::optional<Name>& text) {
    requireUnused(*grid.state);
    const WantedSystem wanted = systemFrom(text);
    if (!grid.grid->findChart(""))
        grid.grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart));
    setSystem(*grid.grid, wanted);
}

// Grids

GridHandle madeGrid(const SliceHandle& slice, const Name& name, const std::optional<Name>& crs,
                    const std::optional<GridHandle>& like) {
    auto grid = findGrid(slice, name.bytes);
    if (!grid) {
        requireUnused(*slice.state);
        const WantedSystem wanted = systemFrom(crs); // before anything is made
        grid = GridHandle{slice.state, slice.slice->time(), slice.slice->makeGrid(name.bytes)};
        if (like) {
            grid->grid->setStatement(like->grid->statement());
            if (const auto chart = like->grid->findChart(""))
                grid->grid->declareCartesianChart(chart->name())
                    ->setReferenceSystem(chart->referenceSystem());
            slice.state->models[grid->grid.get()] = like->grid;
        }
        if (crs)
            setSystemOf(*grid, crs);
    } else if (crs || like) {
        raise("ModelError",
              grid->text() + ": is there already, and like and crs are for new grids; set its crs");
    }
    return *grid;
}

void removeGrid(const SliceHandle& slice, const Name& name) {
    const GridHandle grid = gridNamed(slice, name.bytes);
    requireUnused(*slice.state);
    slice.state->models.erase(grid.grid.get());
    slice.slice->removeGrid(name.bytes);
}

Triple threeOf(const py::object& numbers, const char* what, double third) {
    if (py::isinstance<py::float_>(numbers) || py::isinstance<py::int_>(numbers)) {
        const auto number = numbers.cast<double>();
        return {number, number, third};
    }
    const auto list = numbers.cast<std::vector<double>>();
    if (list.size() != 2 && list.size() != 3)
        raise(PyExc_ValueError, std::string(what) + " takes two or three numbers, x first");
    return {list[0], list[1], list.size() == 3 ? list[2] : third};
}

Sheaf::MultiIndex<3> extentsFrom(const std::vector<std::size_t>& shape) {
    if (shape.size() == 2)
        return {shape[1], shape[0], 1};
    if (shape.size() == 3)
        return {shape[2], shape[1], shape[0]};
    raise(PyExc_ValueError,
          "a lattice has the shape (rows, columns) or (layers, rows, columns), not " + shapeText(shape));
}

GridHandle madeLattice(const SliceHandle& slice, const Name& name, const py::object& origin,
                       const py::object& spacing, const std::optional<std::vector<std::size_t>>& shape,
                       const std::optional<Name>& crs, const std::optional<GridHandle>& like,
                       const py::dict& fields) {
    requireUnused(*slice.state);
    const Triple corner = threeOf(origin, "origin", 0);
    const Triple step = threeOf(spacing, "spacing", 1);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(corner[axis]))
            raise(PyExc_ValueError, "origin takes finite numbers");
        if (!std::isfinite(step[axis]) || !(step[axis] > 0))
            raise(PyExc_ValueError, "spacing takes numbers greater than 0");
    }
    std::vector<std::size_t> places = shape.value_or(std::vector<std::size_t>());
    if (!shape) {
        if (fields.empty())
            raise(PyExc_TypeError, "a lattice needs a shape or a field");
        const auto [first, values] = *fields.begin();
        places = Values(py::reinterpret_borrow<py::object>(values), first.cast<std::string>()).shape();
    }
    const Sheaf::MultiIndex<3> extents = extentsFrom(places);
    if (findGrid(slice, name.bytes))
        raise("ModelError", "there is a grid \"" + name.bytes + "\" at time " +
                                shortestText(slice.slice->time()) + " already");
    const GridHandle grid = madeGrid(slice, name, crs, like);
    try {
        const Fragment fragment = grid.grid->makeFragment(name.bytes);
        // Stated, since text exports look for them.
        fragment->overlapLow = Sheaf::MultiIndex<3>{};
        fragment->overlapHigh = Sheaf::MultiIndex<3>{};
        const auto chart = grid.grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart));
        const auto vertices = grid.grid->skeletons().make({0, {}});
        vertices->representations()
            .make(chart)
            ->makeField("Positions", typeid(Sheaf::Element::Point))
            ->addFragment(fragment, Anchor::makeStrong<Sheaf::HeldCreator>(
                                        Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                                            Sheaf::Element::Point{corner[0], corner[1], corner[2]},
                                            Sheaf::Element::Vector{step[0], step[1], step[2]}, extents)));
        FieldsHandle all(grid);
        for (const auto& [field, values] : fields)
            all.set(field.cast<Name>().bytes, py::reinterpret_borrow<py::object>(values), {});
    } catch (...) {
        removeGrid(slice, name);
        throw;
    }
    return grid;
}

py::object boundsOf(const GridHandle& grid) {
    const FieldsHandle fields(grid);
    if (!fields.contains("Positions"))
        return py::none();
    const auto positions = fields.field("Positions");
    Geom::BoundingBox box;
    perform(py::none(), [&](const Anchor::StrongPtr<Operation>& operation) {
        positions->forEachFragment([&](const auto&, const Creator& data) {
            if (const auto bounds = Sheaf::boundsOf(*data, true, [&] { operation->check(); }))
                box.expand(*bounds);
            return true;
        });
    });
    if (box.empty())
        return py::none();
    py::array_t<double> corners({2, 3});
    auto places = corners.mutable_unchecked<2>();
    const auto put = [&](py::ssize_t row, const Sheaf::Element::Point& point) {
        places(row, 0) = point.x;
        places(row, 1) = point.y;
        places(row, 2) = point.z;
    };
    put(0, box.lower());
    put(1, box.upper());
    return corners;
}

py::object latticeOf(const FieldsHandle& fields, const Fragment& fragment) {
    const Creator data = fields.latticeOf(fragment);
    if (!data)
        return py::none();
    const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data->available());
    const auto& origin = lattice->origin();
    const auto& spacing = lattice->spacing();
    return py::module_::import("tidewatch._types")
        .attr("Lattice")(py::make_tuple(origin.x, origin.y, origin.z),
                         py::make_tuple(spacing.x, spacing.y, spacing.z),
                         py::tuple(py::cast(shapeOf(lattice->extents()))));
}

py::dict statementOf(const GridHandle& grid) {
    const Sheaf::FileStatement& from = grid.grid->statement();
    py::dict statement;
    if (from.step)
        statement["step"] = py::tuple(py::cast(*from.step));
    if (from.offset)
        statement["offset"] = py::tuple(py::cast(*from.offset));
    if (from.gpsTime)
        statement["gps_time"] = *from.gpsTime == Sheaf::FileStatement::GpsTime::Week ? "week" : "adjusted";
    if (from.fileSourceId)
        statement["file_source_id"] = *from.fileSourceId;
    if (from.systemIdentifier)
        statement["system_identifier"] = Name{*from.systemIdentifier};
    if (!from.records.empty()) {
        py::list records;
        for (const Sheaf::FileRecord& record : from.records)
            records.append(py::make_tuple(
                Name{record.userId}, record.recordId, Name{record.description},
                py::bytes(reinterpret_cast<const char*>(record.bytes.data()), record.bytes.size())));
        statement["records"] = records;
    }
    return statement;
}

void setStatementOf(const GridHandle& grid, const py::dict& statement) {
    requireUnused(*grid.state);
    Sheaf::FileStatement made;
    for (const auto& [key, value] : statement) {
        const auto name = key.cast<std::string>();
        if (name == "step") {
            made.step = value.cast<Triple>();
            for (const double step : *made.step) {
                if (!std::isfinite(step) || !(step > 0))
                    raise(PyExc_ValueError, "step takes three numbers greater than 0");
            }
        } else if (name == "offset") {
            made.offset = value.cast<Triple>();
            for (const double offset : *made.offset) {
                if (!std::isfinite(offset))
                    raise(PyExc_ValueError, "offset takes three finite numbers");
            }
        } else if (name == "gps_time") {
            const auto count = value.cast<std::string>();
            if (count != "week" && count != "adjusted")
                raise(PyExc_ValueError, "gps_time takes \"week\" or \"adjusted\", not \"" + count + "\"");
            made.gpsTime = count == "week" ? Sheaf::FileStatement::GpsTime::Week
                                           : Sheaf::FileStatement::GpsTime::Adjusted;
        } else if (name == "file_source_id") {
            made.fileSourceId = value.cast<std::uint16_t>();
        } else if (name == "system_identifier") {
            made.systemIdentifier = value.cast<Name>().bytes;
        } else if (name == "records") {
            for (const py::handle record : value) {
                const auto [user, number, description, bytes] =
                    record.cast<std::tuple<Name, std::uint16_t, Name, py::bytes>>();
                const auto content = static_cast<std::string>(bytes);
                made.records.push_back(
                    {user.bytes, number, description.bytes, {content.begin(), content.end()}});
            }
        } else {
            raise(PyExc_KeyError, "a statement has no \"" + name + "\"");
        }
    }
    grid.grid->setStatement(std::move(made));
}

// Fields

FragmentHandle fragmentNamed(const FieldsHandle& fields, const Name& name) {
    const auto& known = fields.grid().grid->fragments();
    const auto found = known.find(name.bytes);
    if (found != known.end())
        return {fields, found->second};
    requireUnused(*fields.grid().state);
    return {fields, fields.grid().grid->makeFragment(name.bytes)};
}

std::vector<FragmentHandle> fragmentsOf(const FieldsHandle& fields) {
    std::vector<FragmentHandle> fragments;
    for (const Fragment& fragment : fields.fragments())
        fragments.push_back({fields, fragment});
    return fragments;
}

std::vector<std::string> namesOf(const FragmentHandle& fragment) {
    std::vector<std::string> names;
    for (const std::string& name : fragment.fields.names()) {
        if (fragment.fields.field(name)->getCreator(fragment.fragment))
            names.push_back(name);
    }
    return names;
}

FieldsHandle skeletonOf(const GridHandle& grid, const std::vector<std::int32_t>& refinement, int dimension) {
    const Sheaf::Skeleton::Key key{dimension, refinement};
    auto skeleton = grid.grid->skeletons().find(key);
    if (!skeleton) {
        requireUnused(*grid.state);
        skeleton = grid.grid->skeletons().make(key);
    }
    return {grid, std::move(skeleton)};
}

std::vector<FieldsHandle> skeletonsOf(const GridHandle& grid) {
    std::vector<FieldsHandle> skeletons;
    grid.grid->skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        skeletons.emplace_back(grid, grid.grid->skeletons().find(skeleton.key()));
        return true;
    });
    return skeletons;
}

FieldsHandle fieldsOf(const GridHandle& grid) {
    return FieldsHandle(grid);
}
const FieldsHandle& fieldsOf(const FieldsHandle& fields) {
    return fields;
}

/// What grids and skeletons have in common: they map names to arrays.
template <class Handle>
void bindFields(py::class_<Handle>& type) {
    type.def("__getitem__",
             [](const Handle& self, const Name& name) { return fieldsOf(self).get(name.bytes); })
        .def("__setitem__",
             [](Handle& self, const Name& name, const py::object& values) {
                 FieldsHandle(fieldsOf(self)).set(name.bytes, values, {});
             })
        .def("__delitem__",
             [](Handle& self, const Name& name) { FieldsHandle(fieldsOf(self)).remove(name.bytes); })
        .def("__contains__",
             [](const Handle& self, const py::object& name) {
                 return py::isinstance<py::str>(name) && fieldsOf(self).contains(name.cast<Name>().bytes);
             })
        .def("__iter__",
             [](const Handle& self) { return py::iter(py::cast(asNames(fieldsOf(self).names()))); })
        .def("__len__", [](const Handle& self) { return fieldsOf(self).names().size(); })
        .def(
            "set",
            [](Handle& self, const Name& name, const py::object& values,
               const std::optional<std::string>& element) {
                FieldsHandle(fieldsOf(self)).set(name.bytes, values, element.value_or(std::string()));
            },
            py::arg("name"), py::arg("values"), py::kw_only(), py::arg("type") = py::none(),
            "Makes or replaces a field, as assigning does, of an element type: \"point\", \"vector\", \"fixed3d\", "
            "\"bivector3d\", \"bivector3f\", \"rgb8\", \"float32\", ... Without one, fields that files know have "
            "their own, and others that of the values. ValueError for a wrong shape and for values that do not fit, "
            "TypeError for numbers that no field holds.")
        .def(
            "element_type",
            [](const Handle& self, const Name& name) {
                return std::string(
                    Sheaf::elementTypeName(fieldsOf(self).field(name.bytes)->getElementType()));
            },
            "The element type of a field: \"point\", \"uint16\", ... KeyError if there is none.")
        .def(
            "fragments", [](const Handle& self) { return fragmentsOf(fieldsOf(self)); },
            "The fragments, in the order in which fields are joined. The array of a field of one is a view without a "
            "copy.")
        .def(
            "fragment",
            [](const Handle& self, const Name& name) { return fragmentNamed(fieldsOf(self), name); },
            "The fragment of that name, made if there is none.")
        .def_property_readonly(
            "points", [](const Handle& self) { return fieldsOf(self).points(); },
            "The number of points or of places.")
        .def_property_readonly(
            "lattice", [](const Handle& self) { return latticeOf(fieldsOf(self), nullptr); },
            "The Lattice of a uniform grid, of its first fragment if it has several; None for "
            "points.");
}

} // namespace

void bindModel(py::module_& module) {
    py::class_<BundleHandle> bundle(
        module, "Bundle",
        "A data set: a mapping of times to slices. `tidewatch.open` makes one of files, Bundle() an empty one in memory.");
    py::class_<SliceHandle> slice(module, "Slice", "The grids of one time: a mapping of names to grids.");
    py::class_<GridHandle> grid(
        module, "Grid",
        "A point cloud or a lattice: a mapping of names of fields to arrays.\n\n"
        "grid[name] is all of a field: shape (n,), or (n, 3) for points, vectors and colours, of the points of all "
        "fragments; a view without a copy where there is one fragment, read-only where it comes from a file, else a copy. "
        "A field of a lattice has the shape (rows, columns), the first row in the south. Arrays outlive the grid, its "
        "bundle and its file.\n\n"
        "grid[name] = values makes or replaces a field by a copy of values of any number type, byte order and strides.");
    py::class_<FieldsHandle> skeleton(
        module, "Skeleton",
        "The elements of one dimension of a grid at one refinement: a mapping like the grid itself.");
    py::class_<FragmentHandle> fragment(
        module, "Fragment",
        "A piece of a grid: a mapping of names of fields to arrays, each a view without a copy.");

    bundle.def(py::init([] { return BundleHandle(Inputs(Anchor::makeStrong<Sheaf::Bundle>())); }))
        .def("slice", madeSlice, py::arg("time"),
             "The slice of a time, made if there is none. ModelError for a time that is not finite.")
        .def("__getitem__", sliceAt)
        .def("__delitem__",
             [](const BundleHandle& self, double time) {
                 static_cast<void>(sliceAt(self, time));
                 requireUnused(*self.state());
                 self.state()->bundle().removeSlice(time);
             })
        .def("__contains__",
             [](const BundleHandle& self, const py::object& time) {
                 return PyNumber_Check(time.ptr()) != 0 && findSlice(self, time.cast<double>()).has_value();
             })
        .def("__iter__", [](const BundleHandle& self) { return py::iter(py::cast(timesOf(self))); })
        .def("__len__", [](const BundleHandle& self) { return timesOf(self).size(); })
        .def("close", &BundleHandle::close,
             "Lets go of the bundle and its files. Arrays, slices and grids that are held stay as they are.")
        .def_property_readonly("closed", &BundleHandle::isClosed, "Whether close() has been called.")
        .def_property_readonly(
            "failures", [](const BundleHandle& self) { return asNames(self.state()->inputs.failures()); },
            "What is wrong with files that were left out, a text each.")
        .def_property_readonly(
            "notes", [](const BundleHandle& self) { return asNames(self.state()->inputs.notes()); },
            "Remarks on reference systems that were replaced, on choosing and on merging.");

    slice.def_property_readonly("_bundle", [](const SliceHandle& self) { return BundleHandle(self.state); })
        .def_property_readonly(
            "time", [](const SliceHandle& self) { return self.slice->time(); }, "Its time.")
        .def("grid", madeGrid, py::arg("name"), py::kw_only(), py::arg("crs") = py::none(),
             py::arg("like") = py::none())
        .def("_lattice", madeLattice)
        .def("__getitem__",
             [](const SliceHandle& self, const Name& name) { return gridNamed(self, name.bytes); })
        .def("__delitem__", removeGrid)
        .def("__contains__",
             [](const SliceHandle& self, const py::object& name) {
                 return py::isinstance<py::str>(name) && findGrid(self, name.cast<Name>().bytes).has_value();
             })
        .def("__iter__", [](const SliceHandle& self) { return py::iter(py::cast(asNames(gridsOf(self)))); })
        .def("__len__", [](const SliceHandle& self) { return gridsOf(self).size(); });

    bindFields(grid);
    grid.def_property_readonly("_bundle", [](const GridHandle& self) { return BundleHandle(self.state); })
        .def_property_readonly(
            "name", [](const GridHandle& self) { return Name{self.grid->name()}; }, "Its name in the slice.")
        .def_property_readonly(
            "origin", [](const GridHandle& self) { return Name{self.grid->origin()}; },
            "The file that it comes from, or \"\".")
        .def_property_readonly(
            "time", [](const GridHandle& self) { return self.time; }, "That of its slice.")
        .def_property("crs", systemOf, setSystemOf)
        .def_property_readonly("crs_wkt", systemTextOf,
                               "The coordinate reference system as well-known text, or None.")
        .def_property(
            "statement", statementOf, setStatementOf,
            "What the file states besides, as far as it does, and LAS files get: step and offset of "
            "coordinates (x, y, z), gps_time (\"week\" or \"adjusted\"), file_source_id, "
            "system_identifier, and records, a list of (user ID, record ID, description, bytes). May be "
            "set to a dict of these.")
        .def_property_readonly(
            "bounds", boundsOf,
            "The box of the positions, (2, 3) float64, the lower corner first; None without any. "
            "Reads them.")
        .def(
            "skeletons", skeletonsOf,
            "All skeletons. The fields of the grid itself are those of the vertices of the highest refinement that is "
            "the same in every direction.")
        .def("skeleton", skeletonOf, py::arg("refinement") = std::vector<std::int32_t>(), py::kw_only(),
             py::arg("dimension") = 0, "The skeleton of a refinement and dimension, made if there is none.");

    bindFields(skeleton);
    skeleton
        .def_property_readonly(
            "dimension", [](const FieldsHandle& self) { return self.skeleton()->dimension(); },
            "0 for vertices.")
        .def_property_readonly(
            "refinement",
            [](const FieldsHandle& self) { return py::tuple(py::cast(self.skeleton()->refinement())); },
            "Per direction; () if it is not refined.")
        .def_property_readonly(
            "excluded", [](const FieldsHandle& self) { return self.skeleton()->exclusionMark() != 0; },
            "Whether it is marked as not to be exported.");

    fragment
        .def_property_readonly(
            "name",
            [](const FragmentHandle& self) {
                return self.fragment ? std::optional(Name{self.fragment->name()}) : std::nullopt;
            },
            "None for data that is not divided into fragments.")
        .def_property_readonly(
            "lattice", [](const FragmentHandle& self) { return latticeOf(self.fields, self.fragment); },
            "Its Lattice, or None for points.")
        .def("__getitem__", [](const FragmentHandle& self,
                               const Name& name) { return self.fields.getOf(self.fragment, name.bytes); })
        .def("__setitem__",
             [](FragmentHandle& self, const Name& name, const py::object& values) {
                 self.fields.setOf(self.fragment, name.bytes, values, {});
             })
        .def("__contains__",
             [](const FragmentHandle& self, const py::object& name) {
                 return py::isinstance<py::str>(name) && self.fields.contains(name.cast<Name>().bytes) &&
                        self.fields.field(name.cast<Name>().bytes)->getCreator(self.fragment) != nullptr;
             })
        .def("__iter__",
             [](const FragmentHandle& self) { return py::iter(py::cast(asNames(namesOf(self)))); })
        .def("__len__", [](const FragmentHandle& self) { return namesOf(self).size(); });
}

} // namespace Tidewatch::Python
