// Waiting on conditions with a deadline: tests never sleep for a fixed time and hope.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace wws_test {

constexpr std::chrono::milliseconds kDefaultDeadline{5000};

// Polls condition until it holds or the deadline passes; returns whether it held.
inline bool waitFor(const std::function<bool()>& condition,
                    std::chrono::milliseconds deadline = kDefaultDeadline) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace wws_test
