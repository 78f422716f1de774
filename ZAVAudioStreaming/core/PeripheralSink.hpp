#pragma once

#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"

namespace zav {

/// The last node of a graph. The application implements it. Derive from it and override the
/// operations that you need, typically to send the bytes to the peripheral.
///
///     class Accessory : public zav::PeripheralSink {
///      public:
///         using PeripheralSink::PeripheralSink;
///         void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
///                           const zav::AudioStreamPacketDescription*) override { ... }
///     };
///     auto accessory = zav::makeNode<Accessory>(encoder);
///
/// Takes any format. The base operations do nothing and keep no state. An override need not call
/// them.
class ZAV_EXPORT PeripheralSink : public AudioStreamInputable {
 public:
    PeripheralSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);

    /// The upstream that this node was made with. Fatal if it is gone.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }

    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }
    void onAudioStreamFlowStart() override;
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    UpstreamLink upstream_;
};

}  // namespace zav
