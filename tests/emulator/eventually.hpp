// Waiting for what comes about by itself.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace program {

// Whether it comes true in time.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds patience = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace program
