#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/support/Mutex.hpp"

namespace zav::detail {

/// A growing set of buffers that are filled again and again. The pool lists all buffers, and the
/// idle ones in the order in which they came back. It does not own the buffers.
///
/// Threads: any.
template <class Buffer>
class BufferPool {
 public:
    /// Adds a new, idle buffer. Throws `std::bad_alloc` or `std::length_error` if there is no
    /// memory.
    void add(Buffer& buffer) ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        all_.push_back(&buffer);
        idle_.reserve(all_.size());  // `giveBack` allocates no memory
        idle_.push_back(&buffer);
    }
    /// Returns null if no buffer is idle.
    Buffer* firstIdle() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return idle_.empty() ? nullptr : idle_.front();
    }
    /// Marks the first idle buffer as in use.
    void useFirstIdle() ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        idle_.erase(idle_.begin());
    }
    /// Makes a buffer that was in use the last idle one.
    void giveBack(Buffer& buffer) noexcept ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        idle_.push_back(&buffer);
    }

    std::size_t count() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return all_.size();
    }
    std::size_t idleCount() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return idle_.size();
    }
    bool isAnyInUse() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return idle_.size() < all_.size();
    }
    /// Returns the sum of one member over all buffers in use.
    template <class Value>
    std::uint64_t sumInUse(Value Buffer::*member) const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        std::uint64_t sum = 0;
        for (const Buffer* const buffer : all_) {
            if (std::find(idle_.begin(), idle_.end(), buffer) == idle_.end()) {
                sum += buffer->*member;
            }
        }
        return sum;
    }

 private:
    mutable Mutex mutex_;
    std::vector<Buffer*> all_ ZAV_GUARDED_BY(mutex_);
    std::vector<Buffer*> idle_ ZAV_GUARDED_BY(mutex_);
};

}  // namespace zav::detail
