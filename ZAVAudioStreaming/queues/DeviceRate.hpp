#pragma once

#include <cstdint>

namespace zav::detail {

/// Returns true if a `QueueDevice` opens this sample rate in Hz: a whole number from 8000 to
/// 192000.
constexpr bool isDeviceRate(double rate) {
    constexpr double kLowest = 8000;
    constexpr double kHighest = 192000;
    return rate >= kLowest && rate <= kHighest && rate == static_cast<std::uint32_t>(rate);
}

}  // namespace zav::detail
