#pragma once

#include <ZAVAudioStreaming/sinks/PlaybackSink.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Stream.hpp"

namespace zavtool {

/// What stands before a `PlaybackSink`: gathers packets of varying size, so that every chunk fills
/// one queue buffer and comes with the descriptions of its own packets; passes all else on as it
/// comes. Holds the flow end back, because a sink that has not started yet would take it for the
/// end of nothing.
///
/// Threads: the main thread.
class PacketGatherer : public Relay {
 public:
    /// `bytesPerBuffer` of the sink; at least two packets of varying size.
    PacketGatherer(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                   std::shared_ptr<zav::PeripheralSource> next, std::uint32_t bytesPerBuffer)
        : Relay(key, upstream, std::move(next)),
          gathersPackets_(inDataFormat().mBytesPerPacket == 0 &&
                          inDataFormat().mFormatID != zav::kAudioFormatLinearPCM),
          bytesPerBuffer_(bytesPerBuffer) {}

    /// Packets of varying size come one by one.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override { hasEnded_ = true; }

    /// Whether the flow end has come and waits for `finish`.
    bool hasEnded() const { return hasEnded_; }
    /// Passes on what is left, and the flow end. The sink has to be playing or about to.
    void finish(zav::PlaybackSink& sink);

 private:
    void passPackets();

    bool gathersPackets_;
    std::uint32_t bytesPerBuffer_;
    std::vector<std::byte> packets_;
    std::vector<zav::AudioStreamPacketDescription> descriptions_;
    bool hasEnded_ = false;
};

}  // namespace zavtool
