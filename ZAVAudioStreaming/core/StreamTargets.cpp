#include "ZAVAudioStreaming/core/StreamTargets.hpp"

#include <utility>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav {

void StreamTargets::add(std::shared_ptr<AudioStreamInputable> target) {
    if (target == nullptr) {
        fatalError(FatalCause::misuse, "A stream target must not be null");
    }
    targets_.push_back(std::move(target));
}

template <class Call>
void StreamTargets::forEachTarget(Call call) const {
    const std::size_t targetCount = targets_.size();
    for (std::size_t i = 0; i < targetCount; ++i) {
        call(*targets_[i]);
    }
}

void StreamTargets::onAudioStreamFlowStart() const {
    forEachTarget([](AudioStreamInputable& target) { target.onAudioStreamFlowStart(); });
}

void StreamTargets::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                                 const AudioStreamPacketDescription* packetDescriptions) const {
    forEachTarget([=](AudioStreamInputable& target) {
        target.receiveAudio(bytes, size, packetNum, packetDescriptions);
    });
}

void StreamTargets::onAudioStreamFlowEnd() const {
    forEachTarget([](AudioStreamInputable& target) { target.onAudioStreamFlowEnd(); });
}

}  // namespace zav
