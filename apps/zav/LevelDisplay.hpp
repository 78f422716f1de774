#pragma once

#include <ZAVAudioStreaming/platform/AudioQueue.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace zavtool {

/// Shows how loud the audio of a queue is. 1 is full scale.
class LevelDisplay {
 public:
    /// Measures from now on. The queue must outlive this object.
    explicit LevelDisplay(zav::AudioQueueRef queue) : queue_(queue) { look(); }

    /// "[####--]", "peak -3.0 dB" and "0 clips". Call it ten times a second, for a status line.
    std::vector<std::string> fields();
    /// "peak -3.0 dB, 0 clips" since the construction.
    std::string summary();

 private:
    void look();

    zav::AudioQueueRef queue_;
    double shown_ = 0;
    double peak_ = 0;
    std::uint64_t clipCount_ = 0;
};

}  // namespace zavtool
