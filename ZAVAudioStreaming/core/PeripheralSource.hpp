#pragma once

#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"

namespace zav {

/// The first node of a graph. The application already has the audio as bytes, typically from the
/// peripheral. The application sets the format before it makes downstream nodes. Then it pushes the
/// audio: `source->downstreams().receiveAudio(...)` calls every target in order. A range-for over
/// `downstreams()` also visits every target. The node does not convert, buffer or check anything.
///
/// Threads: the application's threads, one at a time.
class ZAV_EXPORT PeripheralSource : public AudioStreamOutputable {
 public:
    explicit PeripheralSource(NodeKey) {}

    /// All fields are zero until the format is set.
    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    void setOutDataFormat(const AudioStreamBasicDescription& format) { outDataFormat_ = format; }

    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    AudioStreamBasicDescription outDataFormat_;
    StreamTargets downstreams_;
};

}  // namespace zav
