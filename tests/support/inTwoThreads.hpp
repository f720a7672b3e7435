// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <exception>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

namespace Support {

/// Calls a function with 0 and with 1 in two threads, which begin together; throws what either has thrown.
inline void inTwoThreads(const std::function<void(std::size_t)>& work) {
    std::latch begin(2);
    std::array<std::exception_ptr, 2> failures;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < 2; ++number) {
        threads.emplace_back([&, number] {
            begin.arrive_and_wait();
            try {
                work(number);
            } catch (...) {
                failures[number] = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const std::exception_ptr& failure : failures) {
        if (failure)
            std::rethrow_exception(failure);
    }
}

} // namespace Support
