#include "ZAVAudioStreaming/core/UpstreamLink.hpp"

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav {

std::shared_ptr<AudioStreamOutputable> UpstreamLink::get() const {
    auto upstream = upstream_.lock();
    if (upstream == nullptr) {
        fatalError(FatalCause::misuse,
                   "The upstream node is gone; it must outlive its downstream nodes");
    }
    return upstream;
}

}  // namespace zav
