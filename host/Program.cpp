// SPDX-License-Identifier: Apache-2.0
#include "host/Program.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "host/CommandLine.hpp"
#include "host/Interruption.hpp"
#include "host/report/StandardOutput.hpp"
#include "library/report/UsageError.hpp"
#include "readers/registerReaders.hpp"

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <variant>

namespace Tidewatch {

namespace {

enum ExitStatus { failed = 1, wrongUsage = 2, interrupted = 130 };

ExitStatus fail(const std::string& message, ExitStatus status = failed) {
    const std::string line = "tidewatch: " + Anchor::printableLines(message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    return status;
}

} // namespace

int runProgram(std::span<const char* const> arguments) {
    openMissingStandardStreams();
    // A closed pipe and a file that exceeds its size limit are then reported as write errors.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    Interruption::install();
    try {
        registerReaders();
        Request request = parseCommandLine(arguments);
        readLists(request);
        return std::visit([](const auto& command) { return command.run(); }, request);
    } catch (const Interrupted& interruption) {
        return fail("interrupted; " + interruption.outcome, interrupted);
    } catch (const UsageError& error) {
        return fail(error.what(), wrongUsage);
    } catch (const std::bad_alloc&) {
        return fail("there is not enough memory; select less with --time, --grid or --field, "
                    "or lower --memory-limit and --fragment-points");
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

} // namespace Tidewatch
