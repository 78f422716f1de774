#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/core/OSStatus.hpp>
#include <ZAVAudioStreaming/platform/AudioQueue.hpp>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

/// What `zav play` and `zav record` have in common.
namespace zavtool {

/// Ends the run with exit code 1. The text says what the sound server refused and what would help.
class SoundServerFailure : public std::runtime_error {
 public:
    explicit SoundServerFailure(zav::OSStatus status);
};

/// Refuses a format that no audio queue takes. Throws `Failure`, which names `file`. `wanted` says
/// what would be accepted.
[[noreturn]] void refuseFormat(const std::filesystem::path& file,
                               const zav::AudioStreamBasicDescription& format,
                               const std::string& wanted);

/// How often an output queue has run out of audio, or an input queue out of buffers.
std::uint32_t interruptionCount(zav::AudioQueueRef queue);

}  // namespace zavtool
