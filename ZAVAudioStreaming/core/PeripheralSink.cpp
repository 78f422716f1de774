#include "ZAVAudioStreaming/core/PeripheralSink.hpp"

namespace zav {

PeripheralSink::PeripheralSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : upstream_(upstream) {}

void PeripheralSink::onAudioStreamFlowStart() {}

void PeripheralSink::receiveAudio(const void* /*bytes*/, std::uint64_t /*size*/,
                                  std::uint64_t /*packetNum*/,
                                  const AudioStreamPacketDescription* /*packetDescriptions*/) {}

void PeripheralSink::onAudioStreamFlowEnd() {}

}  // namespace zav
