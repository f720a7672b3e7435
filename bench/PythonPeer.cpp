// SPDX-License-Identifier: Apache-2.0
//
// The C++ side of bench-python.py, which asks for one job after another: a line "read FILE" has the positions of a LAZ file
// read, "load FILE" puts its points into memory, and "write FILE" exports them. Each is answered by the seconds it took.
#include "anchor/Error.hpp"
#include "capture/captureArray.hpp"
#include "convlib/Reader.hpp"
#include "library/las/exportLas.hpp"
#include "readers/registerReaders.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>

namespace {

using Data = Anchor::StrongPtr<Anchor::Cacheable>;

constexpr const char* fields[] = {"Positions",    "Intensity",       "Classification",
                                  "ReturnNumber", "NumberOfReturns", "GPSTime"};

Anchor::StrongPtr<Sheaf::Representation> verticesOf(const Sheaf::Bundle& bundle) {
    const auto grid = bundle.slices().begin()->second.lock()->grids().begin()->second.lock();
    return grid->skeletons().findVertices(-1)->representations()(grid->findCartesianChart(""));
}

std::vector<Data> readPositions(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::readFile(*bundle, path, {});
    std::vector<Data> arrays;
    verticesOf(*bundle)->Positions()->forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        arrays.push_back(data->create(false));
        return true;
    });
    return arrays;
}

Anchor::StrongPtr<Sheaf::Bundle> load(const std::string& path) {
    const auto from = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::readFile(*from, path, {});
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("survey");
    const auto vertices = grid->skeletons().make({0, {}})->representations().make(
        grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)));
    for (const char* const name : fields) {
        const auto field = verticesOf(*from)->findField(name);
        Sheaf::visitElementType(field->getElementType(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            std::vector<T> elements;
            field->forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
                ExportLib::captureArray(elements, data);
                return true;
            });
            vertices->makeField(name, typeid(T))
                ->addFragment(nullptr,
                              Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(std::move(elements))));
        });
    }
    return bundle;
}

} // namespace

int main() {
    try {
        Tidewatch::registerReaders();
        Anchor::StrongPtr<Sheaf::Bundle> bundle;
        for (std::string line; std::getline(std::cin, line);) {
            const std::string job = line.substr(0, line.find(' '));
            const std::string path = line.substr(line.find(' ') + 1);
            std::vector<Data> held;
            const auto begin = std::chrono::steady_clock::now();
            if (job == "read") {
                held = readPositions(path);
            } else if (job == "load") {
                bundle = load(path);
            } else {
                Tidewatch::LasOptions options;
                options.output = path;
                options.overwrite = true;
                static_cast<void>(Tidewatch::exportLas(Tidewatch::Inputs(bundle), options));
            }
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
            fmt::print("{}\n", taken.count());
            std::fflush(stdout);
        }
    } catch (const std::exception& error) {
        fmt::print(stderr, "bench-python-peer: {}\n", error.what());
        return 1;
    }
    return 0;
}
