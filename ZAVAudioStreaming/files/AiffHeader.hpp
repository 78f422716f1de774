#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zav::detail {

/// Sets how many frames a header of AIFF or AIFC tells of, and the size of its audio chunk to
/// match. libsndfile counts the byte that pads audio of an odd size as a frame.
///
///     'COMM' size32 channels16 frames32 ....   'SSND' size32 offset32 blocksize32 audio
void setAiffFrameCount(std::span<std::byte> header, std::uint32_t frameCount,
                       std::uint32_t frameSize);

}  // namespace zav::detail
