#pragma once

#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"

namespace zav {

/// Head of a graph for audio that the application already holds as bytes, typically because the
/// peripheral sent it. The application sets the format before it makes downstream nodes. Then it
/// pushes: `source->downstreams().receiveAudio(...)` calls every target in order. A range-for over
/// `downstreams()` reaches them, too. The node converts, buffers and checks nothing.
///
/// Threads: the application's, one at a time.
class ZAV_EXPORT PeripheralSource : public AudioStreamOutputable {
 public:
    explicit PeripheralSource(NodeKey) {}

    /// All zero until it is set.
    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    void setOutDataFormat(const AudioStreamBasicDescription& format) { outDataFormat_ = format; }

    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    AudioStreamBasicDescription outDataFormat_;
    StreamTargets downstreams_;
};

}  // namespace zav
