#pragma once

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "Connection.hpp"

/// Sends every SBC frame as a packet. The audio queue's thread calls this class and must not wait.
/// So a frame is lost if the link has no room for the frame, as on a radio link.
class ToAccessory : public zav::PeripheralSink {
 public:
    ToAccessory(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                std::shared_ptr<Connection> connection)
        : PeripheralSink(key, upstream), connection_(std::move(connection)) {}

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription*) override {
        const std::span frames(static_cast<const std::byte*>(bytes), size);
        for (std::uint64_t i = 0; i < packetNum; ++i) {
            const std::size_t frameSize = size / packetNum;
            ++(connection_->send(frames.subspan(i * frameSize, frameSize)) ? sentCount : lostCount);
        }
    }

    std::atomic<std::uint64_t> sentCount = 0;
    std::atomic<std::uint64_t> lostCount = 0;

 private:
    const std::shared_ptr<Connection> connection_;
};
