#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"

namespace zav {

/// What every codec node is around its codec: one upstream, any number of targets, and the format
/// of what it puts out. By itself it passes flow start and flow end on and drops every chunk.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT CodecNode : public AudioStreamInputable, public AudioStreamOutputable {
 public:
    /// The node that this one was made on. One that is gone is a fatal stop.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }

    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    void setOutDataFormat(const AudioStreamBasicDescription& format) { outDataFormat_ = format; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

    /// The upstream's format at this moment.
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
