#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "ZAVAudioStreaming/codecs/CodecNode.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"

namespace zav {

/// Base of the SBC codec nodes. It holds the configuration. Its constructor checks that the
/// upstream's format matches the configuration.
///
/// Threads: the thread that drives the graph. Nodes that share a configuration must share this
/// thread, too.
class ZAV_EXPORT SBCCoding : public CodecNode {
 public:
    /// The number of each enumerator is libsbc's code.
    enum class Frequency : std::uint8_t { _16000, _32000, _44100, _48000 };
    enum class ChannelMode : std::uint8_t { mono, dual, stereo, jointStereo };
    enum class Subband : std::uint8_t { _4, _8 };
    enum class Endianess : std::uint8_t { little, big };
    enum class Block : std::uint8_t { _4, _8, _12, _16 };
    enum class AllocationMethod : std::uint8_t { loudness, SNR };

    /// The rate in Hz.
    static std::uint32_t rawValue(Frequency frequency);
    /// Empty if SBC does not have this rate.
    static std::optional<Frequency> frequencyFromRawValue(std::int64_t rateInHz);
    /// The position in the enumeration, 0 to 3. It is not the number of blocks.
    static std::uint32_t rawValue(Block block) { return static_cast<std::uint32_t>(block); }
    /// Empty unless `position` is 0 to 3.
    static std::optional<Block> blockFromRawValue(std::int64_t position);

    class SBCConfiguration;

    /// Throws `AudioStreamError::unacceptableData` unless the upstream has the rate, the byte order
    /// and the channels of the configuration (one for mono, two for every other mode). Fatal if the
    /// configuration is null.
    SBCCoding(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
              std::shared_ptr<SBCConfiguration> configuration);

    const std::shared_ptr<SBCConfiguration>& config() const noexcept { return config_; }

 private:
    std::shared_ptr<SBCConfiguration> config_;
};

}  // namespace zav
