#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/core/OSStatus.hpp>
#include <ZAVAudioStreaming/platform/AudioQueue.hpp>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace zavtool {

/// Ends the run with exit code 1: the sound server cannot do what is asked of it, and why.
class SoundServerFailure : public std::runtime_error {
 public:
    explicit SoundServerFailure(zav::OSStatus status);
};

/// Refuses a format that no queue takes: throws `Failure`, naming `file`. `wanted` is what would be
/// accepted.
[[noreturn]] void refuseFormat(const std::filesystem::path& file,
                               const zav::AudioStreamBasicDescription& format,
                               const std::string& wanted);

/// How often a queue has run dry, or out of buffers.
std::uint32_t interruptionCount(zav::AudioQueueRef queue);

/// "0:07.3", "1:02:03.4"
std::string clockText(double seconds);
/// "1 underrun", "0 underruns"
std::string countText(std::uint64_t count, const std::string& what);

}  // namespace zavtool
