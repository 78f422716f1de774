#pragma once

#include <pulse/sample.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zav::detail {

/// The 16-bit samples for the 256 values of an 8-bit format.
using WideSamples = std::array<std::int16_t, 256>;

/// Returns null for a format with more than 8 bits. PipeWire uses bytes of 0 as silence in 8-bit
/// formats (seen with 0.3.65). Such a stream makes a loud click whenever it pauses or runs dry.
/// 8-bit formats are therefore played as 16 bits.
const WideSamples* wideSamples(pa_sample_format_t format);

/// Widens the first `byteCount` bytes of the second half of `room`. Writes the samples from the
/// beginning of `room` on.
void widen(const WideSamples& samples, std::span<std::byte> room, std::size_t byteCount);

}  // namespace zav::detail
