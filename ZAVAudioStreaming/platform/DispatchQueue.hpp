#pragma once

#include <functional>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Runs work later, on another thread. An audio output queue runs its callbacks on one. An
/// application that wants them on its own threads (its user interface, its own pool) derives its
/// own class.
class ZAV_EXPORT DispatchQueue {
 public:
    /// How urgent the work is.
    enum class QualityOfService {
        userInitiated,  ///< a user waits for it
    };

    /// The queue that the whole process shares. It runs several pieces of work at the same time, on
    /// a few threads that are started with the first piece and live as long as the process.
    /// Threads: any.
    static DispatchQueue& global(QualityOfService qos);

    virtual ~DispatchQueue() = default;

    /// Runs `work` later, never inside this call. Two pieces of work may run at the same time.
    ///
    /// `work` throws nothing. Work that blocks for long takes a thread away from other users.
    /// Threads: any. Errors: throws std::bad_alloc when there is no memory for it.
    virtual void async(std::function<void()> work) = 0;

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

 protected:
    DispatchQueue() = default;
};

/// A dispatch queue as the platform's functions take it: borrowed. It outlives its user.
using DispatchQueueRef = DispatchQueue*;

}  // namespace zav
