#include "ZAVAudioStreaming/core/PeripheralSource.hpp"

#include <utility>

namespace zav {

void PeripheralSource::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

}  // namespace zav
