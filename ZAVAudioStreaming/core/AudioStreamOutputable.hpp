#pragma once

#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A node that produces a stream and pushes it to its targets, in the order in which they were
/// added.
///
/// Threads: see `AudioStreamInputable`.
class ZAV_EXPORT AudioStreamOutputable {
 public:
    virtual ~AudioStreamOutputable() = default;

    AudioStreamOutputable(const AudioStreamOutputable&) = delete;
    AudioStreamOutputable& operator=(const AudioStreamOutputable&) = delete;

    /// Format of the audio that this node pushes. Valid once the node is made.
    virtual AudioStreamBasicDescription outDataFormat() const = 0;

    /// Appends `target` to the targets and holds it strongly. A target cannot be removed. A target
    /// that is added twice receives everything twice. Never fails. An implementation must not read
    /// the formats of `target` here, because the target may not know them yet.
    virtual void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) = 0;

 protected:
    AudioStreamOutputable() = default;
};

}  // namespace zav
