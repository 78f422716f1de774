#pragma once

#include <pulse/pulseaudio.h>

#include <cstddef>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// Converts format records to libpulse's types.
namespace zav::detail {

struct PulseFormat {
    pa_sample_spec sampling;
    pa_channel_map map;
    std::byte silence;  ///< every byte of a silent frame
};

/// Returns nothing for a format that `QueueDevice` does not list.
std::optional<PulseFormat> pulseFormat(const AudioStreamBasicDescription& format);

}  // namespace zav::detail
