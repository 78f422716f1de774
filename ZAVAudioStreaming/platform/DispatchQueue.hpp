#pragma once

#include <functional>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Where work is handed in to be done later, on some other thread. An audio output queue delivers
/// its callbacks through one. An application that wants them elsewhere (the thread of its user
/// interface, its own pool) derives its own.
class ZAV_EXPORT DispatchQueue {
 public:
    /// How urgent the work is.
    enum class QualityOfService {
        userInitiated,  ///< somebody waits for it
    };

    /// The queue that the whole process shares. It does several pieces of work at the same time, on
    /// a few threads that are started when it is first asked for and live as long as the process.
    /// Threads: any.
    static DispatchQueue& global(QualityOfService qos);

    virtual ~DispatchQueue() = default;

    /// Does `work` later, never inside this call. Two pieces of work may run at the same time.
    ///
    /// `work` throws nothing. Work that blocks for long keeps a thread from the other users.
    /// Threads: any. Errors: throws std::bad_alloc when there is no memory for it.
    virtual void async(std::function<void()> work) = 0;

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

 protected:
    DispatchQueue() = default;
};

/// A dispatch queue as the platform's functions take it: borrowed, and alive as long as what uses
/// it.
using DispatchQueueRef = DispatchQueue*;

}  // namespace zav
