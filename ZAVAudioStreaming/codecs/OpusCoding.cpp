#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"

#include <opus.h>

#include <algorithm>
#include <array>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::array kOpusRatesInHz = {8000.0, 12000.0, 16000.0, 24000.0, 48000.0};
constexpr float kPacketDurationInSeconds = 0.06F;

const char* failureMessage(int result) {
    switch (result) {
        case OPUS_BAD_ARG:
            return "Encoding failed: One or more invalid/out of range arguments";
        case OPUS_BUFFER_TOO_SMALL:
            return "Encoding failed: Not enough bytes allocated in the buffer";
        case OPUS_INTERNAL_ERROR:
            return "Encoding failed: An internal error was detected";
        case OPUS_INVALID_PACKET:
            return "Encoding failed: The compressed data passed is corrupted";
        case OPUS_UNIMPLEMENTED:
            return "Encoding failed: Invalid/unsupported request number";
        case OPUS_INVALID_STATE:
            // Without the prefix on purpose: so it has always read.
            return "An encoder or decoder structure is invalid or already freed";
        case OPUS_ALLOC_FAIL:
            return "Encoding failed: Memory allocation has failed";
        default:
            return "Encoding failed";
    }
}

}  // namespace

OpusCoding::OpusError OpusCoding::OpusError::opus() {
    return {Code::opus, "OpusCoding.OpusError.opus"};
}

OpusCoding::OpusCoding(const std::shared_ptr<AudioStreamOutputable>& upstream,
                       std::uint32_t formatID)
    : CodecNode(upstream) {
    const AudioStreamBasicDescription format = inDataFormat();
    const bool isKnownRate = std::find(kOpusRatesInHz.begin(), kOpusRatesInHz.end(),
                                       format.mSampleRate) != kOpusRatesInHz.end();
    if (format.mFormatID != formatID || !isKnownRate ||
        (format.mChannelsPerFrame != 1 && format.mChannelsPerFrame != 2)) {
        throw AudioStreamError::unacceptableData();
    }
    codecChannels_ = format.mChannelsPerFrame;
}

std::int64_t OpusCoding::frameCountPerPkt(double sampleRate) {
    return checkedTruncate<std::int64_t>(static_cast<float>(sampleRate) * kPacketDurationInSeconds);
}

void OpusCoding::requireCreated(FatalCause cause, int error, SourcePosition position) {
    if (error != OPUS_OK) {
        fatalError(cause, error, "Creating opus codec failed", position);
    }
}

int OpusCoding::requireSuccess(FatalCause cause, int result, SourcePosition position) {
    if (result <= 0) {
        fatalError(cause, result, failureMessage(result), position);
    }
    return result;
}

}  // namespace zav
