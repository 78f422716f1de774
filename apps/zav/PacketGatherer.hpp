#pragma once

#include <ZAVAudioStreaming/sinks/PlaybackSink.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Stream.hpp"

namespace zavtool {

/// Stands before a `PlaybackSink`. Gathers packets of varying size into chunks that fill one queue
/// buffer each and come with descriptions of their packets. Passes other streams on unchanged.
/// Holds back the flow end until `finish`. A sink that gets the flow end before its start does not
/// play its audio.
///
/// Threads: the main thread.
class PacketGatherer : public Relay {
 public:
    /// `bytesPerBuffer` is the sink's buffer size, which must hold two packets of varying size.
    PacketGatherer(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                   std::shared_ptr<zav::PeripheralSource> next, std::uint32_t bytesPerBuffer)
        : Relay(key, upstream, std::move(next)),
          gathersPackets_(inDataFormat().mBytesPerPacket == 0 &&
                          inDataFormat().mFormatID != zav::kAudioFormatLinearPCM),
          bytesPerBuffer_(bytesPerBuffer) {}

    /// Packets of varying size must come one by one.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override { hasEnded_ = true; }

    /// True after the flow end has arrived. `finish` passes the flow end to the sink.
    bool hasEnded() const { return hasEnded_; }
    /// Passes on the remaining packets and the flow end. The sink must be playing or scheduled to
    /// play.
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
