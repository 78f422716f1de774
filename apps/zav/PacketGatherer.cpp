#include "PacketGatherer.hpp"

namespace zavtool {

void PacketGatherer::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                                  const zav::AudioStreamPacketDescription* packetDescriptions) {
    if (!gathersPackets_) {
        Relay::receiveAudio(bytes, size, packetNum, packetDescriptions);
        return;
    }
    if (packets_.size() + size > bytesPerBuffer_) {
        passPackets();
    }
    zav::AudioStreamPacketDescription description;
    description.mStartOffset = static_cast<std::int64_t>(packets_.size());
    description.mDataByteSize = static_cast<std::uint32_t>(size);
    descriptions_.push_back(description);
    const auto* const packet = static_cast<const std::byte*>(bytes);
    packets_.insert(packets_.end(), packet, packet + size);
    if (packets_.size() >= bytesPerBuffer_ / 2) {
        passPackets();  // the sink enqueues a buffer when it is half full
    }
}

void PacketGatherer::passPackets() {
    if (!packets_.empty()) {
        Relay::receiveAudio(packets_.data(), packets_.size(), descriptions_.size(),
                            descriptions_.data());
    }
    packets_.clear();
    descriptions_.clear();
}

void PacketGatherer::finish(zav::PlaybackSink& sink) {
    if (!packets_.empty()) {
        // Makes the sink enqueue the last buffer with its descriptions, even if the buffer is
        // almost empty.
        sink.setQueueBufferSize(static_cast<std::uint32_t>(packets_.size()));
        passPackets();
    }
    Relay::onAudioStreamFlowEnd();
}

}  // namespace zavtool
