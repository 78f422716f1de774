#pragma once

#include <cstdint>

namespace zav::detail {

/// True for the sample rates, in Hz, that a `QueueDevice` opens: whole numbers from 8000 to 192000.
constexpr bool isDeviceRate(double rate) {
    constexpr double kLowest = 8000;
    constexpr double kHighest = 192000;
    return rate >= kLowest && rate <= kHighest && rate == static_cast<std::uint32_t>(rate);
}

}  // namespace zav::detail
