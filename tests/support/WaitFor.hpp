#pragma once

#include <chrono>
#include <thread>

namespace zav::test {

/// Waits until `condition` holds, half a minute at most; whether it does.
template <typename Condition>
bool waitFor(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zav::test
