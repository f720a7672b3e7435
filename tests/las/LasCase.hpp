// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Support {

/// An exporter that refuses fields and grids by name.
class FilteringLasExporter final : public ExportLib::ExportPointCloudToLas {
public:
    bool UseThisField(const std::string& name) override { return !rejectedFields.contains(name); }
    bool UseThisGrid(const std::string& name) const override { return !rejectedGrids.contains(name); }

    std::set<std::string> rejectedFields;
    std::set<std::string> rejectedGrids;
};

/// Notes what it is told and refuses some writes (counted from 1).
class ScriptedProgress final : public Anchor::LoaderProgress {
public:
    bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) override {
        texts.push_back(text);
        numbers.emplace_back(current, total);
        return !refusesAll && !refused.contains(current);
    }

    std::set<std::uint64_t> refused;
    bool refusesAll = false;
    std::vector<std::string> texts;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> numbers;
};

/// A case of tests/las/cases (README.md there): its bundle, and an exporter set up as it says.
class LasCase {
public:
    LasCase(std::filesystem::path folder, const std::string& outputFolder) : folder_(std::move(folder)) {
        exporter.bundleptr = bundle;
        exporter.Progress = progress;
        std::istringstream lines(readBytes(folder_ / "input" / "case.txt"));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string word;
            if (words >> word && word[0] != '#')
                take(word, words, outputFolder);
        }
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Anchor::StrongPtr<ScriptedProgress> progress = Anchor::makeStrong<ScriptedProgress>();
    FilteringLasExporter exporter;

private:
    template <class T>
    static T next(std::istringstream& words) {
        T value{};
        if (!(words >> value))
            throw std::runtime_error("a case with a line cut short");
        return value;
    }

    void take(const std::string& key, std::istringstream& words, const std::string& outputFolder) {
        if (key == "day")
            exporter.Day = next<int>(words);
        else if (key == "year")
            exporter.Year = next<int>(words);
        else if (key == "version")
            exporter.Version = next<int>(words);
        else if (key == "tiles")
            exporter.tiles = next<int>(words) != 0;
        else if (key == "uncompressed")
            exporter.uncompressed = next<int>(words) != 0;
        else if (key == "psid")
            exporter.PointSourceID = next<int>(words);
        else if (key == "outname")
            exporter.OutputPath = (std::filesystem::path(outputFolder) / next<std::string>(words)).string();
        else if (key == "rename") {
            const auto from = next<std::string>(words);
            exporter.RenameMap[from] = next<std::string>(words);
        } else if (key == "reject")
            exporter.rejectedFields.insert(next<std::string>(words));
        else if (key == "rejectgrid")
            exporter.rejectedGrids.insert(next<std::string>(words));
        else if (key == "refuse")
            progress->refused.insert(next<std::uint64_t>(words));
        else if (key == "grid")
            grid_.emplace(*bundle, 0.0, next<std::string>(words));
        else if (key == "field")
            grid_.value().representation()->makeField(next<std::string>(words), typeid(float));
        else if (key == "fragment")
            fragment_ = next<std::string>(words);
        else if (key == "array") {
            const auto field = next<std::string>(words);
            const auto type = next<std::string>(words);
            const auto count = next<std::size_t>(words);
            addArray(field, type, count, next<std::string>(words));
        } else
            throw std::runtime_error("a case with the unknown word " + key);
    }

    void addArray(const std::string& field, const std::string& type, std::size_t count,
                  const std::string& file) {
        const std::string bytes = readBytes(folder_ / "input" / file);
        const bool isKnown =
            add<Geom::PhysicalSpace::point>("point3", field, type, count, bytes) ||
            add<Geom::RGB<unsigned char>>("rgb8", field, type, count, bytes) ||
            add<unsigned char>("u8", field, type, count, bytes) ||
            add<signed char>("i8", field, type, count, bytes) ||
            add<unsigned short>("u16", field, type, count, bytes) ||
            add<short>("i16", field, type, count, bytes) || add<unsigned>("u32", field, type, count, bytes) ||
            add<int>("i32", field, type, count, bytes) || add<float>("f32", field, type, count, bytes) ||
            add<double>("f64", field, type, count, bytes);
        if (!isKnown)
            throw std::runtime_error("a case with the unknown type " + type);
    }

    template <class T>
    bool add(const char* name, const std::string& field, const std::string& type, std::size_t count,
             const std::string& bytes) {
        if (type != name)
            return false;
        if (bytes.size() != count * sizeof(T))
            throw std::runtime_error("a case whose file of " + field + " has another size");
        std::vector<T> elements(count);
        if (count != 0)
            std::memcpy(elements.data(), bytes.data(), bytes.size());
        grid_.value().field(field, fragment_, std::move(elements));
        return true;
    }

    std::filesystem::path folder_;
    std::optional<GridBuilder> grid_;
    std::string fragment_;
};

} // namespace Support
