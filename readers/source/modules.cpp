// SPDX-License-Identifier: Apache-2.0
#include "readers/source/modules.hpp"

#include "anchor/Error.hpp"

#include <array>
#include <dlfcn.h>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;

struct Modules {
    std::mutex mutex;
    std::map<ModuleKind, const SourceModule*> loaded;
    std::string folder;
};

Modules& modules() {
    static auto* const all = new Modules;
    return *all;
}

/// The folder of the file from which this function was loaded, with links resolved.
fs::path thisFolder() {
    static const char inside = 0;
    Dl_info info{};
    if (::dladdr(&inside, &info) == 0 || info.dli_fname == nullptr)
        return {};
    std::error_code error;
    const fs::path file = fs::canonical(info.dli_fname, error);
    return error ? fs::path() : file.parent_path();
}

/// The first of the folders that contains a file of that name.
std::string folderWith(const std::string& name, std::initializer_list<fs::path> folders) {
    for (const fs::path& folder : folders) {
        std::error_code error;
        if (!folder.empty() && fs::is_regular_file(folder / name, error))
            return folder.string();
    }
    return {};
}

std::string chosenFolder() {
    const std::lock_guard lock(modules().mutex);
    return modules().folder;
}

void* handleOf(ModuleKind kind, const std::string& folder) {
    const std::string file = (fs::path(folder) / Places::moduleName(kind)).string();
    // Never unloaded: objects that it created may be held anywhere.
    void* const handle = folder.empty() ? nullptr : ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr)
        return handle;
    const char* const why = folder.empty() ? nullptr : ::dlerror();
    throw Anchor::FileError(fmt::format("{}: cannot be loaded: {}", Places::moduleName(kind),
                                        why != nullptr ? why : "it was not found"));
}

} // namespace

std::string Places::moduleName(ModuleKind kind) {
    return kind == ModuleKind::Bundles ? TIDEWATCH_BUNDLES_MODULE : TIDEWATCH_RASTERS_MODULE;
}

std::string Places::moduleFolder() {
    return folderWith(moduleName(ModuleKind::Bundles),
                      {chosenFolder(), thisFolder(), TIDEWATCH_MODULE_FOLDER});
}

std::string Places::readerProgram() {
    const fs::path here = thisFolder();
    const std::string name = "tidewatch-read";
    const std::string folder =
        folderWith(name, {chosenFolder(), here, here.empty() ? here : here / TIDEWATCH_LIBEXEC_FROM_LIBRARY,
                          TIDEWATCH_LIBEXEC_FOLDER});
    return folder.empty() ? folder : (fs::path(folder) / name).lexically_normal().string();
}

void Places::setFolder(std::string folder) {
    const std::lock_guard lock(modules().mutex);
    modules().folder = std::move(folder);
}

const SourceModule& loadModule(ModuleKind kind, const std::string& folder) {
    const std::lock_guard lock(modules().mutex);
    const SourceModule*& module = modules().loaded[kind];
    if (module != nullptr)
        return *module;
    void* const function = ::dlsym(handleOf(kind, folder), "tidewatch_module");
    if (function == nullptr)
        throw Anchor::FileError(Places::moduleName(kind) + ": is not a module of this program");
    const SourceModule& loaded = *reinterpret_cast<GetModule*>(function)();
    if (loaded.version() != TIDEWATCH_VERSION)
        throw Anchor::FileError(fmt::format("{}: has version {}, but version {} is needed",
                                            Places::moduleName(kind), loaded.version(), TIDEWATCH_VERSION));
    module = &loaded;
    return loaded;
}

void* functionOfModule(ModuleKind kind, const std::string& folder, const char* name) {
    static_cast<void>(loadModule(kind, folder));
    void* const function = ::dlsym(handleOf(kind, folder), name);
    if (function == nullptr)
        throw Anchor::FileError(Places::moduleName(kind) + ": has no function " + name);
    return function;
}

void provideModule(ModuleKind kind, const SourceModule& module) {
    const std::lock_guard lock(modules().mutex);
    modules().loaded[kind] = &module;
}

} // namespace Tidewatch
