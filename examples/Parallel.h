#pragma once

#include <exception>
#include <thread>
#include <vector>

namespace Demo {

// Threads for the machine's cores: as many as it has, at least one.
inline unsigned coreCount() {
    const unsigned cores = std::thread::hardware_concurrency();
    return cores > 0 ? cores : 1;
}

// Runs work(0) .. work(count - 1) at once, work(0) on the calling thread, and returns when all have ended.
// Where the system gives no more threads, the calling thread does the rest itself. The first exception
// thrown by any of them is rethrown here, after all have ended.
template <typename Work> void runParallel(unsigned count, const Work& work) {
    if (count == 0) {
        return;
    }
    std::vector<std::exception_ptr> errors(count);
    auto guarded = [&](unsigned index) {
        try {
            work(index);
        } catch (...) {
            errors[index] = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    unsigned started = 1;
    try {
        threads.reserve(count);
        for (; started < count; ++started) {
            threads.emplace_back(guarded, started);
        }
    } catch (...) {
        // Fewer threads only make it slower.
    }
    guarded(0);
    for (unsigned index = started; index < count; ++index) {
        guarded(index);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::exception_ptr& error : errors) {
        if (error) {
            std::rethrow_exception(error);
        }
    }
}

} // namespace Demo
