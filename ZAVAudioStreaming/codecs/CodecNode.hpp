#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"

namespace zav {

/// Base of the codec nodes: one upstream, any number of targets, and the output format. The base
/// class passes flow start and flow end to the targets and drops every chunk.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT CodecNode : public AudioStreamInputable, public AudioStreamOutputable {
 public:
    /// The upstream that this node was made with. Fatal if it is gone.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }

    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    void setOutDataFormat(const AudioStreamBasicDescription& format) { outDataFormat_ = format; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

    /// The upstream's current format.
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }
    void onAudioStreamFlowStart() override;
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 protected:
    explicit CodecNode(const std::shared_ptr<AudioStreamOutputable>& upstream)
        : upstream_(upstream) {}

 private:
    UpstreamLink upstream_;
    StreamTargets downstreams_;
    AudioStreamBasicDescription outDataFormat_;
};

}  // namespace zav
