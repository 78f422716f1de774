#pragma once

#include <pulse/sample.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zav::detail {

/// 16-bit samples of the 256 values of an 8-bit format.
using WideSamples = std::array<std::int16_t, 256>;

/// Null for a format that has more bits. PipeWire takes bytes of 0 for silence in formats of 8 bits
/// (seen with 0.3.65), and bangs whenever a stream of such a format pauses or runs dry: they are
/// played as 16 bits.
const WideSamples* wideSamples(pa_sample_format_t format);

/// Widens the bytes in the second half of `room`, from its middle on, into its beginning.
void widen(const WideSamples& samples, std::span<std::byte> room, std::size_t byteCount);

}  // namespace zav::detail
