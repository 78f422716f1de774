#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"

#include <opus.h>

#include <algorithm>
#include <array>
#include <string>

#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::int64_t kBytesPerPcmSample = sizeof(opus_int16);
/// Three frames of 20 ms and three bytes of the packet itself. An Opus frame has at most 1275
/// bytes.
constexpr std::size_t kMaximumPacketSize = 3828;

constexpr auto kFormatHasChanged = "The upstream's format has changed";

bool isAligned(const std::byte* bytes) {
    return reinterpret_cast<std::uintptr_t>(bytes) % alignof(opus_int16) == 0;
}

}  // namespace

void OpusEncoder::Destroy::operator()(::OpusEncoder* codec) const noexcept {
    opus_encoder_destroy(codec);
}

OpusEncoder::OpusEncoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : OpusCoding(upstream, kAudioFormatLinearPCM) {
    const AudioStreamBasicDescription pcm = inDataFormat();
    int error = OPUS_OK;
    codec_.reset(opus_encoder_create(static_cast<opus_int32>(pcm.mSampleRate),
                                     static_cast<int>(pcm.mChannelsPerFrame),
                                     OPUS_APPLICATION_AUDIO, &error));
    requireCreated(FatalCause::opusEncoding, error);
    setOutDataFormat(opusFormat(pcm.mSampleRate, pcm.mChannelsPerFrame));
}

OpusEncoder::~OpusEncoder() = default;

void OpusEncoder::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t /*packetNum*/,
                               const AudioStreamPacketDescription* /*packetDescriptions*/) {
    const auto* input = static_cast<const std::byte*>(bytes);
    const auto* const inputEnd = input + checkedCast<std::int64_t>(size);
    const auto remaining = [&] { return static_cast<std::size_t>(inputEnd - input); };

    const std::uint32_t channels = inDataFormat().mChannelsPerFrame;
    const auto packetPcmSize = checkedCast<std::size_t>(checkedMultiply(
        checkedMultiply(frameCountPerPkt(), kBytesPerPcmSample), std::int64_t{channels}));
    const std::size_t savedSize = partialFrameBytes_ ? partialFrameBytes_->size() : 0;
    if (savedSize > packetPcmSize) {
        fatalError(FatalCause::formatMismatch, kFormatHasChanged);
    }

    if (partialFrameBytes_) {
        const std::size_t missingSize = packetPcmSize - savedSize;
        if (remaining() < missingSize) {
            fatalWithoutMemory(
                [&] { partialFrameBytes_->insert(partialFrameBytes_->end(), input, inputEnd); });
            return;
        }
        ChunkBuffer scratch(packetPcmSize);
        std::copy(partialFrameBytes_->begin(), partialFrameBytes_->end(), scratch.data());
        std::copy_n(input, missingSize, scratch.data() + savedSize);
        encodePacket({scratch.data(), packetPcmSize}, Report::nothing);
        input += missingSize;
    }
    for (; remaining() >= packetPcmSize; input += packetPcmSize) {
        if (isAligned(input)) {
            encodePacket({input, packetPcmSize}, Report::size);
        } else {
            ChunkBuffer scratch(packetPcmSize);
            std::copy_n(input, packetPcmSize, scratch.data());
            encodePacket({scratch.data(), packetPcmSize}, Report::size);
        }
    }
    // If no bytes are left over, the saved bytes stay unchanged: see the class comment.
    if (remaining() > 0) {
        if (!partialFrameBytes_) {
            partialFrameBytes_.emplace();
        }
        fatalWithoutMemory([&] { partialFrameBytes_->assign(input, inputEnd); });
    }
}

void OpusEncoder::onAudioStreamFlowEnd() {
    partialFrameBytes_.reset();
    OpusCoding::onAudioStreamFlowEnd();
}

void OpusEncoder::encodePacket(std::span<const std::byte> pcm, Report report) {
    // Read the count for each packet: a target may have changed the format since the last packet.
    const auto frameCount = checkedCast<std::int32_t>(frameCountPerPkt());
    if (frameCount * kBytesPerPcmSample * codecChannels() > static_cast<std::int64_t>(pcm.size())) {
        fatalError(FatalCause::formatMismatch,
                   kFormatHasChanged);  // libopus would read beyond the packet's PCM
    }
    std::array<unsigned char, kMaximumPacketSize> packet;
    const int packetSize =
        requireSuccess(FatalCause::opusEncoding,
                       opus_encode(codec_.get(), reinterpret_cast<const opus_int16*>(pcm.data()),
                                   frameCount, packet.data(), packet.size()));
    if (report == Report::size) {
        printDiagnostics("Succeed opus encoding to " + std::to_string(packetSize) + " bytes");
    }
    downstreams().receiveAudio(packet.data(), static_cast<std::uint64_t>(packetSize), 1, nullptr);
}

}  // namespace zav
