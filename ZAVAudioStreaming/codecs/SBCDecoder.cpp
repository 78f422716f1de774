#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"

#include <sbc/sbc.h>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"
#include "ZAVAudioStreaming/support/ZeroTail.hpp"

namespace zav {

using namespace detail;

namespace {

// The names and numbers of these positions are fixed.
constexpr SourcePosition kChunkSizePosition{"SBCCoding", 481};
constexpr SourcePosition kDecodePosition{"SBCCoding", 496};

std::shared_ptr<SBCCoding::SBCConfiguration> configurationOf(
    const AudioStreamOutputable& upstream) {
    const AudioStreamBasicDescription format = upstream.outDataFormat();
    if (format.mFormatID != kAudioFormatSbc) {
        throw AudioStreamError::unacceptableData();
    }
    return SBCCoding::SBCConfiguration::fromDataFormat(format);
}

[[noreturn]] std::shared_ptr<SBCCoding::SBCConfiguration> unimplementedInitializer() {
    fatalError(FatalCause::misuse,
               "Use of unimplemented initializer 'init(audioFrom:configuration:)' for class "
               "'ZAVAudioStreaming.SBCDecoder'");
}

}  // namespace

SBCDecoder::SBCDecoder(NodeKey key, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : SBCCoding(key, upstream, configurationOf(*upstream)) {
    const AudioStreamBasicDescription sbc = inDataFormat();
    AudioStreamBasicDescription pcm = linearPcm(sbc.mSampleRate, sbc.mChannelsPerFrame);
    if ((sbc.mFormatFlags & kSbcFormatFlagIsBigEndian) != 0) {
        pcm.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    }
    setOutDataFormat(pcm);
}

SBCDecoder::SBCDecoder(NodeKey key, const std::shared_ptr<AudioStreamOutputable>& upstream,
                       const std::shared_ptr<SBCConfiguration>& /*configuration*/)
    : SBCCoding(key, upstream, unimplementedInitializer()) {}

void SBCDecoder::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                              const AudioStreamPacketDescription* /*packetDescriptions*/) {
    sbc_t* const state = config()->sbc();
    const std::size_t frameLen = sbc_get_frame_length(state);
    const std::size_t codeSize = sbc_get_codesize(state);
    if (size % frameLen != 0) {
        fatalError(FatalCause::formatMismatch,
                   "Not integral multiple. This generaly means a mismatch stream data format",
                   kChunkSizePosition);
    }

    const std::size_t outputSize = checkedMultiply(codeSize, checkedCast<std::size_t>(packetNum));
    ChunkBuffer output(outputSize);
    const auto* frame = static_cast<const std::byte*>(bytes);
    std::byte* pcm = output.data();
    for (std::uint64_t i = 0; i < packetNum; ++i, frame += frameLen, pcm += codeSize) {
        std::size_t written = 0;
        if (const ssize_t result = sbc_decode(state, frame, frameLen, pcm, codeSize, &written);
            result < 1) {
            fatalError(FatalCause::sbcDecoding, static_cast<std::int32_t>(result),
                       "Decoding failed", kDecodePosition);
        }
        zeroTail(pcm, written, codeSize);
    }
    downstreams().receiveAudio(output.data(), outputSize, packetNum, nullptr);
}

}  // namespace zav
