#pragma once

#include <pulse/pulseaudio.h>

#include <cstddef>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// Format records in libpulse's terms.
namespace zav::detail {

struct PulseFormat {
    pa_sample_spec sampling;
    pa_channel_map map;
    std::byte silence;  ///< every byte of a silent frame
};

/// Empty for a format that is none of `QueueDevice`'s.
std::optional<PulseFormat> pulseFormat(const AudioStreamBasicDescription& format);

}  // namespace zav::detail
