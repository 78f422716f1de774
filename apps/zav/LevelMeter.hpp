#pragma once

#include <ZAVAudioStreaming/core/PeripheralSink.hpp>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

namespace zavtool {

/// How loud audio is. 1 is full scale.
struct Levels {
    double now = 0;               ///< peak of the last tenth of a second
    double peak = 0;              ///< of all so far
    std::uint64_t clipCount = 0;  ///< samples so far that are at full scale
};

/// Measures linear PCM that goes past. A player's audio is pushed long before it is heard, so
/// levels are kept until their time has come.
///
/// Threads: audio on one, levels asked for on another.
class LevelMeter : public zav::PeripheralSink {
 public:
    LevelMeter(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream);

    /// Whether this is PCM that can be measured.
    static bool measures(const zav::AudioStreamBasicDescription& format);

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override;

    /// As they are when this much has been heard. Goes forwards only.
    Levels levelsAt(double seconds);
    Levels levelsAtEnd() { return levelsAt(std::numeric_limits<double>::infinity()); }

 private:
    struct Block {
        std::uint64_t endFrame = 0;
        double peak = 0;
        std::uint64_t clipCount = 0;
    };

    void measure(const std::byte* sample, Block& block) const;

    zav::AudioStreamBasicDescription format_;
    std::uint32_t bytesPerSample_;
    std::uint64_t framesPerBlock_;
    std::uint64_t frameCount_ = 0;

    std::mutex mutex_;  ///< for what follows
    std::deque<Block> blocks_;
    Levels levels_;
};

/// "[######----]", "-12 dB", "peak -3 dB" and "0 clips", for a status line.
std::vector<std::string> levelFields(const Levels& levels);
/// ", peak -3.0 dB, 0 clips", for a summary.
std::string levelSummary(const Levels& levels);

}  // namespace zavtool
