#include "ZAVAudioStreaming/queues/QueueRun.hpp"

namespace zav::detail {

QueueRun::StartAction QueueRun::startAction() const {
    if (isBeingDisposedOf()) {
        return StartAction::refuse;
    }
    if (!isRunning_) {
        return StartAction::open;
    }
    if (isPaused_) {
        return StartAction::resume;
    }
    return isStopping_ ? StartAction::callOffStop : StartAction::nothing;
}

QueueRun::PauseAction QueueRun::pauseAction(bool hasEnqueued) const {
    if (isBeingDisposedOf()) {
        return PauseAction::refuse;
    }
    // Do not pause if only a decoder still holds audio. The application has all its buffers back
    // and would not resume the queue.
    const bool playsOnlyTheRest = isStopping_ && !hasEnqueued;
    return isRunning_ && !isPaused_ && !playsOnlyTheRest ? PauseAction::pause
                                                         : PauseAction::nothing;
}

void QueueRun::noteStopped() {
    isRunning_ = false;
    isPaused_ = false;
    isStopping_ = false;
    ++stopCount_;
}

void QueueRun::noteDisposed() {
    isRunning_ = false;
    disposal_ = Disposal::done;
}

}  // namespace zav::detail
