// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <hdf5.h>

/// Makes HDF5 files through the library's own interface, bundle files or nearly so: what other programs might
/// write, and what nobody should. Every failure is an exception, since then a test tests nothing.
namespace Support::Craft {

inline hid_t need(hid_t id, const char* what) {
    if (id < 0)
        throw std::runtime_error(std::string("crafting a file: ") + what);
    return id;
}

/// An HDF5 file; the oldest form of the format, as most programs write it, unless asked otherwise.
class File {
public:
    enum class Form { Oldest, Version18, Latest };

    [[nodiscard]] static const char* nameOf(Form form) {
        return form == Form::Oldest ? "oldest" : form == Form::Version18 ? "version18" : "latest";
    }
    /// For the names of tests.
    friend void PrintTo(Form form, std::ostream* out) { *out << nameOf(form); }

    /// A dense file has no space left between its parts.
    explicit File(const std::string& path, Form form = Form::Oldest, bool isDense = false) {
        const hid_t access = need(H5Pcreate(H5P_FILE_ACCESS), "access");
        const hid_t creation = need(H5Pcreate(H5P_FILE_CREATE), "creation");
        if (form != Form::Oldest)
            need(H5Pset_libver_bounds(access, form == Form::Latest ? H5F_LIBVER_LATEST : H5F_LIBVER_V18,
                                      H5F_LIBVER_LATEST),
                 "bounds");
        if (isDense) {
            need(H5Pset_meta_block_size(access, 1), "block size");
            need(H5Pset_small_data_block_size(access, 1), "block size");
            need(H5Pset_istore_k(creation, 1), "tree size");
        }
        if (isDense && form == Form::Oldest)
            need(H5Pset_sym_k(creation, 1, 1), "tree size");
        id_ = need(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation, access), "file");
        H5Pclose(creation);
        H5Pclose(access);
    }
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] hid_t id() const { return id_; }

    void close() {
        if (id_ >= 0)
            H5Fclose(std::exchange(id_, H5I_INVALID_HID));
    }

    /// Makes a group, with all that lead to it.
    const File& group(const std::string& path) const {
        for (std::size_t end = 0; end != std::string::npos;) {
            end = path.find('/', end + 1);
            const std::string part = path.substr(0, end);
            if (H5Lexists(id_, part.c_str(), H5P_DEFAULT) <= 0)
                H5Gclose(need(H5Gcreate2(id_, part.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "group"));
        }
        return *this;
    }

    /// A text of fixed length.
    const File& text(const std::string& object, const char* name, const std::string& value) const {
        const hid_t type = need(H5Tcopy(H5T_C_S1), "type");
        need(H5Tset_size(type, value.empty() ? 1 : value.size()), "size");
        attribute(object, name, type, type, {}, value.empty() ? "" : value.data());
        H5Tclose(type);
        return *this;
    }

    /// A text of variable length.
    const File& longText(const std::string& object, const char* name, const std::string& value) const {
        const hid_t type = need(H5Tcopy(H5T_C_S1), "type");
        need(H5Tset_size(type, H5T_VARIABLE), "size");
        const char* const characters = value.c_str();
        attribute(object, name, type, type, {}, &characters);
        H5Tclose(type);
        return *this;
    }

    const File& number(const std::string& object, const char* name, double value) const {
        return attribute(object, name, H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {}, &value);
    }
    const File& number(const std::string& object, const char* name, int value) const {
        return attribute(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {}, &value);
    }
    const File& numbers(const std::string& object, const char* name,
                        const std::vector<double>& values) const {
        return attribute(object, name, H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {values.size()}, values.data());
    }
    const File& numbers(const std::string& object, const char* name,
                        const std::vector<std::uint64_t>& values) const {
        return attribute(object, name, H5T_STD_U64LE, H5T_NATIVE_UINT64, {values.size()}, values.data());
    }
    const File& numbers(const std::string& object, const char* name,
                        const std::vector<std::int32_t>& values) const {
        return attribute(object, name, H5T_STD_I32LE, H5T_NATIVE_INT32, {values.size()}, values.data());
    }

    /// An attribute of any type; without extents a single value.
    const File& attribute(const std::string& object, const char* name, hid_t stored, hid_t memory,
                          const std::vector<hsize_t>& extents, const void* data) const {
        const hid_t target = need(H5Oopen(id_, object.c_str(), H5P_DEFAULT), "object");
        const hid_t space = spaceOf(extents);
        const hid_t handle =
            need(H5Acreate2(target, name, stored, space, H5P_DEFAULT, H5P_DEFAULT), "attribute");
        need(H5Awrite(handle, memory, data), "attribute's data");
        H5Aclose(handle);
        H5Sclose(space);
        H5Oclose(target);
        return *this;
    }

    /// A dataset of any type, with creation properties of any kind; without data where that is null.
    const File& dataset(const std::string& path, hid_t stored, hid_t memory,
                        const std::vector<hsize_t>& extents, const void* data,
                        hid_t properties = H5P_DEFAULT) const {
        const hid_t links = need(H5Pcreate(H5P_LINK_CREATE), "links");
        H5Pset_create_intermediate_group(links, 1);
        const hid_t space = spaceOf(extents);
        const hid_t handle =
            need(H5Dcreate2(id_, path.c_str(), stored, space, links, properties, H5P_DEFAULT), "dataset");
        if (data != nullptr)
            need(H5Dwrite(handle, memory, H5S_ALL, H5S_ALL, H5P_DEFAULT, data), "dataset's data");
        H5Dclose(handle);
        H5Sclose(space);
        H5Pclose(links);
        return *this;
    }

    /// A dataset of int32 that may grow.
    const File& growingDataset(const std::string& path, const std::vector<hsize_t>& extents,
                               const std::vector<hsize_t>& most, const double* data, hid_t properties) const {
        const hid_t space =
            need(H5Screate_simple(static_cast<int>(extents.size()), extents.data(), most.data()), "extents");
        const hid_t handle =
            need(H5Dcreate2(id_, path.c_str(), H5T_STD_I32LE, space, H5P_DEFAULT, properties, H5P_DEFAULT),
                 "dataset");
        need(H5Dwrite(handle, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, data), "dataset's data");
        H5Dclose(handle);
        H5Sclose(space);
        return *this;
    }

    /// What every bundle file begins with.
    const File& bundle() const {
        return text("/", "format", "tidewatch-bundle").number("/", "version", 1).group("/slices");
    }

    /// A slice at time 0 with one grid that has one vertex skeleton in the standard chart; fields go to
    /// `fields`.
    const File& grid(const std::string& name = "g") const {
        group("/slices/t/grids/" + name + "/skeletons/s/representations/StandardCartesianChart3D");
        if (H5Aexists_by_name(id_, "/slices/t", "time", H5P_DEFAULT) <= 0)
            number("/slices/t", "time", 0.0);
        return number("/slices/t/grids/" + name + "/skeletons/s", "dimension", 0);
    }

private:
    static hid_t spaceOf(const std::vector<hsize_t>& extents) {
        return need(extents.empty()
                        ? H5Screate(H5S_SCALAR)
                        : H5Screate_simple(static_cast<int>(extents.size()), extents.data(), nullptr),
                    "extents");
    }

    hid_t id_ = H5I_INVALID_HID;
};

/// The group of the fields that File::grid makes.
inline const std::string fields = "/slices/t/grids/g/skeletons/s/representations/StandardCartesianChart3D/";

/// Creation properties for a dataset; closed at the end.
class Properties {
public:
    Properties() : id_(need(H5Pcreate(H5P_DATASET_CREATE), "properties")) {}
    ~Properties() { H5Pclose(id_); }
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    Properties& chunk(const std::vector<hsize_t>& extents) {
        need(H5Pset_chunk(id_, static_cast<int>(extents.size()), extents.data()), "chunk");
        return *this;
    }
    Properties& filters(bool shuffle, unsigned deflate, bool checksum) {
        if (shuffle)
            need(H5Pset_shuffle(id_), "shuffle");
        if (deflate != 0)
            need(H5Pset_deflate(id_, deflate), "deflate");
        if (checksum)
            need(H5Pset_fletcher32(id_), "checksum");
        return *this;
    }
    [[nodiscard]] hid_t id() const { return id_; }

private:
    hid_t id_;
};

} // namespace Support::Craft
