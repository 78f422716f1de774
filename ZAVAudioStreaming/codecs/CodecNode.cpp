#include "ZAVAudioStreaming/codecs/CodecNode.hpp"

#include <utility>

namespace zav {

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
