#pragma once

#include <chrono>

namespace zav::test {

/// How long a test waits for another thread before it fails: far longer than that ever takes.
inline constexpr std::chrono::seconds kWaitLimit{120};

}  // namespace zav::test
