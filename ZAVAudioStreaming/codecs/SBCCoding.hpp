#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "ZAVAudioStreaming/codecs/CodecNode.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"

namespace zav {

/// Base of the SBC codec nodes: holds the configuration, and checks at construction that the
/// upstream's format suits it.
///
/// Threads: the thread that drives the graph; a configuration shared with other nodes makes them
/// all one graph in this respect.
class ZAV_EXPORT SBCCoding : public CodecNode {
 public:
    /// The cases' positions are libsbc's codes for the parameter.
    enum class Frequency : std::uint8_t { _16000, _32000, _44100, _48000 };
    enum class ChannelMode : std::uint8_t { mono, dual, stereo, jointStereo };
    enum class Subband : std::uint8_t { _4, _8 };
    enum class Endianess : std::uint8_t { little, big };
    enum class Block : std::uint8_t { _4, _8, _12, _16 };
    enum class AllocationMethod : std::uint8_t { loudness, SNR };

    /// The rate in Hz.
    static std::uint32_t rawValue(Frequency frequency);
    /// Empty for a rate that SBC does not have.
    static std::optional<Frequency> frequencyFromRawValue(std::int64_t rateInHz);
    /// The position, 0 to 3, not the number of blocks.
    static std::uint32_t rawValue(Block block) { return static_cast<std::uint32_t>(block); }
    /// Empty for anything but 0 to 3.
    static std::optional<Block> blockFromRawValue(std::int64_t position);

    class SBCConfiguration;

    /// Throws `AudioStreamError::unacceptableData` unless the upstream's rate is the
    /// configuration's, its channels (one: mono, two: any other mode) and its byte order too.
    SBCCoding(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
              std::shared_ptr<SBCConfiguration> configuration);

    const std::shared_ptr<SBCConfiguration>& config() const noexcept { return config_; }

 private:
    std::shared_ptr<SBCConfiguration> config_;
};

}  // namespace zav
