#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

#include <sbc/sbc.h>

#include <new>
#include <span>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"
#include "ZAVAudioStreaming/support/SBCHeader.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr auto kNoMemory = "No memory for the SBC codec state";

template <class Enumeration>
constexpr std::uint8_t codeOf(Enumeration value) {
    return static_cast<std::uint8_t>(value);
}

bool isValid(std::span<const std::byte> frame) {
    try {
        return isValidSbcFrame(frame);
    } catch (const std::bad_alloc&) {
        fatalError(FatalCause::outOfMemory, kNoMemory);
    }
}

SBCHeader headerOf(const SBCCoding::SBCConfiguration& configuration) {
    return {.sampleRate = SBCCoding::rawValue(configuration.freq),
            .blocks = 4 * (SBCCoding::rawValue(configuration.blocks) + 1),
            .mode = static_cast<SBCHeader::ChannelMode>(configuration.mode),
            .allocation = static_cast<SBCHeader::Allocation>(configuration.allocation),
            .subbands = configuration.subband == SBCCoding::Subband::_8 ? 8U : 4U,
            .bitpool = configuration.bitpool};
}

}  // namespace

SBCCoding::SBCConfiguration::~SBCConfiguration() {
    // Two things are on purpose. `sbc` makes a state that does not exist yet. Only the record is
    // freed: without sbc_finish, libsbc's private memory stays allocated.
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
    const std::span frame(static_cast<const std::byte*>(bytes), size);
    const auto header = SBCHeader::fromBytes(frame);
    if (!header || size < header->frameLength() || !isValid(frame)) {
        return nullptr;
    }
    auto configuration = std::make_shared<SBCConfiguration>();
    configuration->freq = frequencyFromRawValue(header->sampleRate).value();
    configuration->mode = static_cast<ChannelMode>(header->mode);
    configuration->subband = header->subbands == 8 ? Subband::_8 : Subband::_4;
    configuration->blocks = static_cast<Block>(header->blocks / 4 - 1);
    configuration->allocation = static_cast<AllocationMethod>(header->allocation);
    configuration->bitpool = header->bitpool;
    return configuration;
}

sbc_struct* SBCCoding::SBCConfiguration::sbc() {
    if (sbc_ == nullptr) {
        auto state = std::make_unique<sbc_struct>();
        if (sbc_init(state.get(), 0) != 0) {
            fatalError(FatalCause::outOfMemory, kNoMemory);
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

AudioStreamBasicDescription sbcFormat(const SBCCoding::SBCConfiguration& configuration,
                                      double sampleRate, std::uint32_t channels) {
    AudioStreamBasicDescription format = headerOf(configuration).dataFormat();
    format.mSampleRate = sampleRate;
    format.mFormatFlags = configuration.formatFlags();
    format.mChannelsPerFrame = channels;
    return format;
}

}  // namespace zav
