#include "ZAVAudioStreaming/codecs/FrameAligner.hpp"

#include <span>
#include <utility>

#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"
#include "ZAVAudioStreaming/support/Silence.hpp"

namespace zav {

using namespace detail;

namespace {

/// One frame of silence in linear PCM. All bytes are 0, except the highest byte of unsigned
/// samples.
std::vector<std::byte> silentFrame(const AudioStreamBasicDescription& pcm) {
    const std::uint32_t bytesPerSample = pcm.mBitsPerChannel / 8;
    const bool samplesAreFull =
        bytesPerSample != 0 && pcm.mBitsPerChannel % 8 == 0 &&
        std::uint64_t{bytesPerSample} * pcm.mChannelsPerFrame == pcm.mBytesPerFrame;
    const std::byte highestByte = silenceByteOf(pcm);
    const bool isAllZero = highestByte == std::byte{0};
    if (pcm.mFormatID != kAudioFormatLinearPCM || !(isAllZero || samplesAreFull)) {
        throw AudioStreamError::unacceptableData();
    }
    std::vector<std::byte> frame(pcm.mBytesPerFrame);
    if (!isAllZero) {
        const bool isBigEndian = (pcm.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
        for (std::size_t i = isBigEndian ? 0 : bytesPerSample - 1; i < frame.size();
             i += bytesPerSample) {
            frame[i] = highestByte;
        }
    }
    return frame;
}

}  // namespace

FrameAligner::FrameAligner(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                           std::size_t bytesPerChunk, AtFlowEnd atFlowEnd)
    : upstream_(upstream),
      bytesPerChunk_(bytesPerChunk),
      atFlowEnd_(atFlowEnd),
      silentFrame_(silentFrame(upstream_.dataFormat())) {
    if (silentFrame_.empty() || bytesPerChunk == 0 || bytesPerChunk % silentFrame_.size() != 0) {
        throw AudioStreamError::unacceptableData();
    }
}

std::size_t FrameAligner::bytesPerSbcFrame(SBCCoding::SBCConfiguration& configuration) {
    return configuration.codeSize();
}

std::size_t FrameAligner::bytesPerOpusPacket(const AudioStreamBasicDescription& pcm) {
    return checkedMultiply(checkedCast<std::size_t>(OpusCoding::frameCountPerPkt(pcm.mSampleRate)),
                           std::size_t{pcm.mBytesPerFrame});
}

void FrameAligner::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

void FrameAligner::onAudioStreamFlowStart() {
    downstreams_.onAudioStreamFlowStart();
}

void FrameAligner::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t /*packetNum*/,
                                const AudioStreamPacketDescription* /*packetDescriptions*/) {
    std::span input(static_cast<const std::byte*>(bytes), checkedCast<std::size_t>(size));
    if (held_.empty()) {
        input = input.subspan(passPieces(input));
    }
    fatalWithoutMemory([&] { held_.insert(held_.end(), input.begin(), input.end()); });
    const std::size_t passedSize = passPieces(held_);
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(passedSize));
}

void FrameAligner::onAudioStreamFlowEnd() {
    if (atFlowEnd_ == AtFlowEnd::padWithSilence && !held_.empty()) {
        fatalWithoutMemory([&] { held_.reserve(bytesPerChunk_); });
        while (held_.size() < bytesPerChunk_) {
            held_.push_back(silentFrame_[held_.size() % silentFrame_.size()]);
        }
        passPieces(held_);
    }
    held_.clear();
    downstreams_.onAudioStreamFlowEnd();
}

/// Passes on the whole pieces at the start of `pcm` and returns their size in bytes.
std::size_t FrameAligner::passPieces(std::span<const std::byte> pcm) const {
    const std::size_t size = pcm.size() - pcm.size() % bytesPerChunk_;
    if (size > 0) {
        downstreams_.receiveAudio(pcm.data(), size, size / silentFrame_.size(), nullptr);
    }
    return size;
}

}  // namespace zav
