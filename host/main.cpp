// SPDX-License-Identifier: Apache-2.0
#include "host/Program.hpp"
#include "library/input/freedArrays.hpp"

#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>
#include <unistd.h>

namespace {

std::terminate_handler usual = nullptr;

/// Where memory runs out in a function of a library that must not throw (CLI11 has some), nothing can be done but to say so.
[[noreturn]] void terminateWithMessage() noexcept {
    try {
        if (const auto error = std::current_exception())
            std::rethrow_exception(error);
    } catch (const std::bad_alloc&) {
        constexpr std::string_view text = "tidewatch: there is not enough memory\n";
        static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
        ::_exit(1);
    } catch (...) {
    }
    usual();
    std::abort();
}

} // namespace

int main(int argc, char** argv) {
    usual = std::set_terminate(terminateWithMessage);
    Tidewatch::giveFreedArraysBack();
    const std::size_t count = argc > 0 ? static_cast<std::size_t>(argc) - 1 : 0;
    return Tidewatch::runProgram({argv + 1, count});
}
