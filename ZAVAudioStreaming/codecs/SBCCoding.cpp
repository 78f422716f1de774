#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"

#include <utility>

#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/support/SBCHeader.hpp"

namespace zav {

using namespace detail;

namespace {

bool suits(const SBCCoding::SBCConfiguration& configuration,
           const AudioStreamBasicDescription& format) {
    if (format.mSampleRate != static_cast<double>(SBCCoding::rawValue(configuration.freq))) {
        return false;
    }
    const bool isMono = configuration.mode == SBCCoding::ChannelMode::mono;
    if (format.mChannelsPerFrame != (isMono ? 1U : 2U)) {
        return false;
    }
    const bool isBigEndian = (format.mFormatFlags & kSbcFormatFlagIsBigEndian) != 0;
    return isBigEndian == (configuration.endian == SBCCoding::Endianess::big);
}

}  // namespace

std::uint32_t SBCCoding::rawValue(Frequency frequency) {
    return kSbcRatesInHz[static_cast<std::size_t>(frequency)];
}

std::optional<SBCCoding::Frequency> SBCCoding::frequencyFromRawValue(std::int64_t rateInHz) {
    for (std::size_t i = 0; i < kSbcRatesInHz.size(); ++i) {
        if (rateInHz == kSbcRatesInHz[i]) {
            return static_cast<Frequency>(i);
        }
    }
    return std::nullopt;
}

std::optional<SBCCoding::Block> SBCCoding::blockFromRawValue(std::int64_t position) {
    if (position < 0 || position > 3) {
        return std::nullopt;
    }
    return static_cast<Block>(position);
}

SBCCoding::SBCCoding(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                     std::shared_ptr<SBCConfiguration> configuration)
    : CodecNode(upstream), config_(std::move(configuration)) {
    if (config_ == nullptr) {
        fatalError(FatalCause::misuse, "An SBC node needs a configuration");
    }
    if (!suits(*config_, inDataFormat())) {
        throw AudioStreamError::unacceptableData();
    }
}

}  // namespace zav
