#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"

#include <sbc/sbc.h>

#include <algorithm>
#include <utility>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"
#include "ZAVAudioStreaming/support/ZeroTail.hpp"

namespace zav {

using namespace detail;

namespace {

// The names and numbers of these positions are fixed.
constexpr SourcePosition kSavedFramePosition{"SBCCoding", 338};
constexpr SourcePosition kWholeFramesPosition{"SBCCoding", 349};

const std::shared_ptr<AudioStreamOutputable>& requireLinearPCM(
    const std::shared_ptr<AudioStreamOutputable>& upstream) {
    if (upstream->outDataFormat().mFormatID != kAudioFormatLinearPCM) {
        throw AudioStreamError::unacceptableData();
    }
    return upstream;
}

void encodeFrame(sbc_t* state, const std::byte* pcm, std::size_t codeSize, std::byte* frame,
                 std::size_t frameLen, SourcePosition position) {
    ssize_t written = 0;
    if (const ssize_t result = sbc_encode(state, pcm, codeSize, frame, frameLen, &written);
        result < 1) {
        fatalError(FatalCause::sbcEncoding, static_cast<std::int32_t>(result), "Encoding failed",
                   position);
    }
    // `written` is negative if libsbc cannot pack these settings. libsbc has written nothing then.
    zeroTail(frame, static_cast<std::size_t>(std::max<ssize_t>(written, 0)), frameLen);
}

}  // namespace

SBCEncoder::SBCEncoder(NodeKey key, const std::shared_ptr<AudioStreamOutputable>& upstream,
                       std::shared_ptr<SBCConfiguration> configuration)
    : SBCCoding(key, requireLinearPCM(upstream), std::move(configuration)) {
    const AudioStreamBasicDescription pcm = inDataFormat();
    const auto codeSize = checkedCast<std::uint32_t>(config()->codeSize());

    AudioStreamBasicDescription sbc = sbcFormat(*config(), pcm.mSampleRate, pcm.mChannelsPerFrame);
    // The sizes come from the codec state. Fields that are set later do not change the state.
    sbc.mBytesPerPacket = checkedCast<std::uint32_t>(config()->frameLen());
    sbc.mFramesPerPacket =
        checkedDivide(checkedDivide(codeSize, pcm.mBitsPerChannel / 8), pcm.mChannelsPerFrame);
    setOutDataFormat(sbc);
}

void SBCEncoder::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t /*packetNum*/,
                              const AudioStreamPacketDescription* /*packetDescriptions*/) {
    const auto* input = static_cast<const std::byte*>(bytes);
    const auto* const inputEnd = input + checkedCast<std::int64_t>(size);
    const auto remaining = [&] { return static_cast<std::size_t>(inputEnd - input); };

    sbc_t* const state = config()->sbc();
    const std::size_t frameLen = sbc_get_frame_length(state);
    const std::size_t codeSize = sbc_get_codesize(state);
    const std::size_t savedSize = partialFrameBytes_ ? partialFrameBytes_->size() : 0;

    if (savedSize + remaining() < codeSize) {
        // Less than one frame: all bytes wait.
        const std::byte noFrames{};
        downstreams().receiveAudio(&noFrames, 0, 0, nullptr);
        if (remaining() > 0) {
            auto& saved = savedBytes();
            fatalWithoutMemory([&] { saved.insert(saved.end(), input, inputEnd); });
        }
        return;
    }

    const std::size_t frameCount = (savedSize + remaining()) / codeSize;
    const std::size_t outputSize = checkedMultiply(frameCount, frameLen);
    ChunkBuffer output(outputSize);
    std::byte* frame = output.data();

    if (partialFrameBytes_) {
        ChunkBuffer scratch(codeSize);
        std::copy(partialFrameBytes_->begin(), partialFrameBytes_->end(), scratch.data());
        std::copy_n(input, codeSize - savedSize, scratch.data() + savedSize);
        encodeFrame(state, scratch.data(), codeSize, frame, frameLen, kSavedFramePosition);
        input += codeSize - savedSize;
        frame += frameLen;
    }
    for (; remaining() >= codeSize; input += codeSize, frame += frameLen) {
        encodeFrame(state, input, codeSize, frame, frameLen, kWholeFramesPosition);
    }

    downstreams().receiveAudio(output.data(), outputSize, frameCount, nullptr);

    // If no bytes are left over, the saved bytes stay unchanged: see the class comment.
    if (remaining() > 0) {
        auto& saved = savedBytes();
        fatalWithoutMemory([&] { saved.assign(input, inputEnd); });
    }
}

std::vector<std::byte>& SBCEncoder::savedBytes() {
    return partialFrameBytes_ ? *partialFrameBytes_ : partialFrameBytes_.emplace();
}

void SBCEncoder::onAudioStreamFlowEnd() {
    partialFrameBytes_.reset();
    SBCCoding::onAudioStreamFlowEnd();
}

}  // namespace zav
