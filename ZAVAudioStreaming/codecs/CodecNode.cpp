#include "ZAVAudioStreaming/codecs/CodecNode.hpp"

#include <utility>

namespace zav {

AudioStreamBasicDescription CodecNode::pcmFormat(double sampleRate, std::uint32_t channels,
                                                 std::uint32_t byteOrder) {
    constexpr std::uint32_t kBytesPerSample = 2;
    AudioStreamBasicDescription pcm;
    pcm.mSampleRate = sampleRate;
    pcm.mFormatID = kAudioFormatLinearPCM;
    pcm.mFormatFlags = byteOrder | kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    pcm.mBytesPerPacket = kBytesPerSample * channels;
    pcm.mFramesPerPacket = 1;
    pcm.mBytesPerFrame = pcm.mBytesPerPacket;
    pcm.mChannelsPerFrame = channels;
    pcm.mBitsPerChannel = 8 * kBytesPerSample;
    return pcm;
}

void CodecNode::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

void CodecNode::onAudioStreamFlowStart() {
    downstreams_.onAudioStreamFlowStart();
}

void CodecNode::receiveAudio(const void* /*bytes*/, std::uint64_t /*size*/,
                             std::uint64_t /*packetNum*/,
                             const AudioStreamPacketDescription* /*packetDescriptions*/) {}

void CodecNode::onAudioStreamFlowEnd() {
    downstreams_.onAudioStreamFlowEnd();
}

}  // namespace zav
