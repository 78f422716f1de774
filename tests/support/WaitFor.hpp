#pragma once

#include <chrono>
#include <thread>

namespace zav::test {

/// How long a test waits for another thread or process. Far longer than that ever takes.
inline constexpr std::chrono::seconds kWaitLimit{60};

/// Waits until `condition` holds. Calls `passTime` before each new check. Returns false if the
/// condition does not hold within `kWaitLimit`.
template <typename Condition, typename PassTime>
bool waitFor(Condition condition, PassTime passTime) {
    const auto limit = std::chrono::steady_clock::now() + kWaitLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        passTime();
    }
    return true;
}

template <typename Condition>
bool waitFor(Condition condition) {
    return waitFor(condition, [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
}

}  // namespace zav::test
