#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/core/OSStatus.hpp>
#include <ZAVAudioStreaming/platform/AudioQueue.hpp>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

/// Shared by `zav play` and `zav record`.
namespace zavtool {

/// Ends the run with exit code 1. The text names the refusal of the sound server and a remedy.
class SoundServerFailure : public std::runtime_error {
 public:
    explicit SoundServerFailure(zav::OSStatus status);
};

/// Refuses a format that no audio queue takes. Throws `Failure`, which names `file`. `wanted`
/// describes the accepted formats.
[[noreturn]] void refuseFormat(const std::filesystem::path& file,
                               const zav::AudioStreamBasicDescription& format,
                               const std::string& wanted);

/// How often an output queue has run out of audio, or an input queue out of buffers.
std::uint32_t interruptionCount(zav::AudioQueueRef queue);

}  // namespace zavtool
