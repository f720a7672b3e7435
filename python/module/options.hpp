// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/Export.hpp"
#include "library/input/Inputs.hpp"
#include "library/options/OptionValues.hpp"
#include "library/report/UsageError.hpp"

#include <optional>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

namespace Tidewatch::Python {

namespace py = pybind11;

/// The keyword arguments of a call that are not at their defaults: flags, and values as the texts that the program's options
/// take, a list of texts for options that may be given several times. Used with the lock.
class Given {
public:
    explicit Given(py::dict arguments) : arguments_(std::move(arguments)) {}

    [[nodiscard]] bool has(const char* name) const { return arguments_.contains(name); }

    /// Each text of an argument; none if it is not given.
    [[nodiscard]] std::vector<std::string> texts(const char* name);

    /// False if it is not given.
    [[nodiscard]] bool flag(const char* name);

    /// Calls `store` with the parsed value of each text. `takes` describes the values. Throws UsageError.
    template <class Parse, class Store>
    void each(const char* name, const char* takes, Parse parse, Store store) {
        for (const std::string& text : texts(name)) {
            const auto value = [&] {
                try {
                    return parse(text);
                } catch (const InvalidValue& fault) {
                    throw UsageError(std::string(name) + " " + text + ": " + fault.what());
                }
            }();
            if (!value)
                throw UsageError(std::string(name) + " takes " + takes + ", not \"" + text + "\"");
            store(*value);
        }
    }

    template <class Parse, class Target>
    void value(const char* name, const char* takes, Parse parse, Target& target) {
        each(name, takes, parse, [&](const auto& value) { target = value; });
    }

    /// Throws TypeError if an argument is left that nobody has asked for; `call` names the function.
    void requireAllTaken(const char* call) const;

private:
    [[nodiscard]] py::object take(const char* name);

    py::dict arguments_;
};

/// Takes the arguments about reading files.
void takeReading(Given& given, InputOptions& options);

/// Takes the arguments about files that a bundle in memory has no use for.
void takeFiles(Given& given, InputOptions& options);

/// Takes the arguments about choosing and merging.
void takePoints(Given& given, InputOptions& options);

/// Takes how many processors to use.
void takeJobs(Given& given, InputOptions& options);

/// Takes the arguments about squares.
void takeTiles(Given& given, InputOptions& options);

/// Takes the arguments about outputs that stand by themselves.
void takeEach(Given& given, EachOutput& each);

void takeFilters(Given& given, Filters& filters);
void takeLosses(Given& given, LossPolicy& policy);

} // namespace Tidewatch::Python
