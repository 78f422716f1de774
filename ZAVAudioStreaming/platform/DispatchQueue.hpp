#pragma once

#include <functional>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Runs work later, on another thread. An audio output queue runs its callbacks on a dispatch
/// queue. An application can derive its own class, to run callbacks on its own threads (its user
/// interface, its own pool).
class ZAV_EXPORT DispatchQueue {
 public:
    /// How urgent the work is.
    enum class QualityOfService {
        userInitiated,  ///< a user waits for it
    };

    /// The queue that the whole process shares. It runs several pieces of work at the same time on
    /// a few threads. The first piece starts these threads. They live as long as the process.
    /// Threads: any.
    static DispatchQueue& global(QualityOfService qos);

    virtual ~DispatchQueue() = default;

    /// Runs `work` later, never inside this call. Two pieces of work may run at the same time.
    ///
    /// `work` must not throw. Work that blocks for long takes a thread away from other users.
    /// Threads: any. Errors: throws std::bad_alloc if there is no memory for the work.
    virtual void async(std::function<void()> work) = 0;

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

 protected:
    DispatchQueue() = default;
};

/// A borrowed dispatch queue, as the platform's functions take it. It must outlive its user.
using DispatchQueueRef = DispatchQueue*;

}  // namespace zav
