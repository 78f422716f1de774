#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

#include <sbc/sbc.h>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"

namespace zav {
namespace {

constexpr auto kNoMemory = "No memory for the SBC codec state";

template <class Enumeration>
constexpr std::uint8_t codeOf(Enumeration value) {
    return static_cast<std::uint8_t>(value);
}

}  // namespace

SBCCoding::SBCConfiguration::~SBCConfiguration() {
    // Only the record is freed, without sbc_finish: libsbc's private memory behind it stays, on
    // purpose, also for a state that nobody asked for before.
    delete sbc();
}

std::shared_ptr<SBCCoding::SBCConfiguration> SBCCoding::SBCConfiguration::fromDataFormat(
    const AudioStreamBasicDescription& format) {
    auto configuration = std::make_shared<SBCConfiguration>();
    for (std::size_t i = 0; i < kSbcRatesInHz.size(); ++i) {
        if (format.mSampleRate == kSbcRatesInHz[i]) {
            configuration->freq = static_cast<Frequency>(i);
        }
    }
    const auto flags = SbcFormatFlags::unpacked(format.mFormatFlags);
    configuration->mode = format.mChannelsPerFrame == 2 ? ChannelMode::stereo : ChannelMode::mono;
    configuration->endian = flags.isBigEndian ? Endianess::big : Endianess::little;
    configuration->blocks = static_cast<Block>(flags.blocks);
    configuration->allocation = flags.isSnr ? AllocationMethod::SNR : AllocationMethod::loudness;
    configuration->subband = flags.is8Subbands ? Subband::_8 : Subband::_4;
    configuration->bitpool = flags.bitpool;
    return configuration;
}

std::shared_ptr<SBCCoding::SBCConfiguration> SBCCoding::SBCConfiguration::fromFrame(
    const void* bytes, std::size_t size) {
    sbc_t state{};
    if (sbc_init(&state, 0) != 0) {
        fatalError(kNoMemory);
    }
    const bool isFrame = sbc_parse(&state, bytes, size) > 0;
    const sbc_t header = state;  // sbc_finish clears the fields
    sbc_finish(&state);
    if (!isFrame) {
        return nullptr;
    }
    auto configuration = std::make_shared<SBCConfiguration>();
    configuration->freq = static_cast<Frequency>(header.frequency);
    configuration->mode = static_cast<ChannelMode>(header.mode);
    configuration->subband = static_cast<Subband>(header.subbands);
    configuration->blocks = static_cast<Block>(header.blocks);
    configuration->allocation = static_cast<AllocationMethod>(header.allocation);
    configuration->bitpool = header.bitpool;
    return configuration;
}

sbc_struct* SBCCoding::SBCConfiguration::sbc() {
    if (sbc_ == nullptr) {
        auto state = std::make_unique<sbc_struct>();
        if (sbc_init(state.get(), 0) != 0) {
            fatalError(kNoMemory);
        }
        state->frequency = codeOf(freq);
        state->mode = codeOf(mode);
        state->endian = codeOf(endian);
        state->subbands = codeOf(subband);
        state->blocks = codeOf(blocks);
        state->allocation = codeOf(allocation);
        state->bitpool = bitpool;
        sbc_ = state.release();
    }
    return sbc_;
}

std::size_t SBCCoding::SBCConfiguration::frameLen() {
    return sbc_get_frame_length(sbc());
}

std::size_t SBCCoding::SBCConfiguration::codeSize() {
    return sbc_get_codesize(sbc());
}

std::uint32_t SBCCoding::SBCConfiguration::formatFlags() const {
    return SbcFormatFlags{endian == Endianess::big, codeOf(blocks),
                          allocation == AllocationMethod::SNR, subband == Subband::_8, bitpool}
        .packed();
}

}  // namespace zav
