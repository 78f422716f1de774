#include "ZAVAudioStreaming/codecs/OpusDecoder.hpp"

#include <opus.h>

#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::uint32_t kBytesPerSample = sizeof(opus_int16);

/// Start and size of one packet in a chunk.
struct PacketBytes {
    const std::byte* start;
    opus_int32 size;
};

PacketBytes bytesOfPacket(const std::byte* chunk, std::uint64_t chunkSize, std::uint64_t packetNum,
                          const AudioStreamPacketDescription* descriptions, std::uint64_t index) {
    if (descriptions != nullptr) {
        return {chunk + descriptions[index].mStartOffset,
                checkedCast<opus_int32>(descriptions[index].mDataByteSize)};
    }
    const std::uint64_t packetSize = chunkSize / packetNum;
    return {chunk + index * packetSize, checkedCast<opus_int32>(packetSize)};
}

// A format that changes in the middle of a stream must not cause a write outside the block.
void requireRoom(std::size_t roomInSamples, std::int32_t frameCount, std::uint32_t channels,
                 SourcePosition position = SourcePosition::current()) {
    if (checkedMultiply(checkedCast<std::size_t>(frameCount), std::size_t{channels}) >
        roomInSamples) {
        fatalError(FatalCause::formatMismatch, "The upstream's format has changed", position);
    }
}

}  // namespace

void OpusDecoder::Destroy::operator()(::OpusDecoder* codec) const noexcept {
    opus_decoder_destroy(codec);
}

OpusDecoder::OpusDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : OpusCoding(upstream, kAudioFormatOpus) {
    const AudioStreamBasicDescription opus = inDataFormat();
    int error = OPUS_OK;
    codec_.reset(opus_decoder_create(static_cast<opus_int32>(opus.mSampleRate),
                                     static_cast<int>(opus.mChannelsPerFrame), &error));
    requireCreated(FatalCause::opusDecoding, error);
    setOutDataFormat(linearPcm(opus.mSampleRate, opus.mChannelsPerFrame));
}

OpusDecoder::~OpusDecoder() = default;

void OpusDecoder::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                               const AudioStreamPacketDescription* packetDescriptions) {
    const std::size_t roomInSamples =
        checkedMultiply(checkedMultiply(checkedCast<std::size_t>(frameCountPerPkt()),
                                        std::size_t{outDataFormat().mChannelsPerFrame}),
                        checkedCast<std::size_t>(packetNum));
    ChunkBuffer block(checkedMultiply(roomInSamples, std::size_t{kBytesPerSample}));
    auto* const samples = reinterpret_cast<opus_int16*>(block.data());
    std::size_t sampleCount = 0;

    for (std::uint64_t i = 0; i < packetNum; ++i) {
        const PacketBytes packet = bytesOfPacket(static_cast<const std::byte*>(bytes), size,
                                                 packetNum, packetDescriptions, i);
        const auto frameCount = checkedCast<std::int32_t>(frameCountPerPkt());
        requireRoom(roomInSamples - sampleCount, frameCount, codecChannels());
        const int decodedCount = requireSuccess(
            FatalCause::opusDecoding,
            opus_decode(codec_.get(), reinterpret_cast<const unsigned char*>(packet.start),
                        packet.size, samples + sampleCount, frameCount, 0));
        const std::uint32_t channels = inDataFormat().mChannelsPerFrame;
        requireRoom(roomInSamples - sampleCount, decodedCount, channels);
        sampleCount += static_cast<std::size_t>(decodedCount) * channels;
    }

    const std::uint64_t byteCount = std::uint64_t{sampleCount} * kBytesPerSample;
    for (const auto& target : downstreams()) {
        const std::uint32_t channels = inDataFormat().mChannelsPerFrame;
        target->receiveAudio(block.data(), byteCount,
                             checkedDivide(byteCount, std::uint64_t{channels}) / kBytesPerSample,
                             nullptr);
    }
}

}  // namespace zav
