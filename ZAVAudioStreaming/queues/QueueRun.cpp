#include "ZAVAudioStreaming/queues/QueueRun.hpp"

namespace zav::detail {

QueueRun::StartAction QueueRun::startAction() const {
    if (isBeingDisposedOf()) {
        return StartAction::refuse;
    }
    switch (phase_) {
        case Phase::stopped:
            return StartAction::open;
        case Phase::paused:
            return StartAction::resume;
        default:
            return isStopping_ ? StartAction::callOffStop : StartAction::nothing;
    }
}

QueueRun::PauseAction QueueRun::pauseAction(bool hasEnqueued) const {
    if (isBeingDisposedOf()) {
        return PauseAction::refuse;
    }
    // An application that has all its buffers back would not resume the queue for the rest that a
    // decoder still holds.
    const bool playsOnlyTheRest = isStopping_ && !hasEnqueued;
    return phase_ == Phase::running && !playsOnlyTheRest ? PauseAction::pause
                                                         : PauseAction::nothing;
}

void QueueRun::noteStopped() {
    phase_ = Phase::stopped;
    isStopping_ = false;
    ++stopCount_;
}

void QueueRun::noteDisposed() {
    phase_ = Phase::stopped;
    disposal_ = Disposal::done;
}

}  // namespace zav::detail
