#pragma once

#include <memory>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Reference of a consuming node to its upstream. It is set once and does not keep the upstream
/// alive.
class ZAV_EXPORT UpstreamLink {
 public:
    explicit UpstreamLink(const std::shared_ptr<AudioStreamOutputable>& upstream)
        : upstream_(upstream) {}

    /// The upstream. Fatal if it is gone: the application must keep every upstream alive at least
    /// as long as its downstreams.
    std::shared_ptr<AudioStreamOutputable> get() const;

    /// The upstream's current format.
    AudioStreamBasicDescription dataFormat() const { return get()->outDataFormat(); }

 private:
    std::weak_ptr<AudioStreamOutputable> upstream_;
};

}  // namespace zav
