#pragma once

#include <atomic>
#include <cassert>
#include <thread>

namespace zav::detail {

/// A role that only one thread at a time may play, for example the producer of a ring. It is not a
/// lock. Debug builds stop the program when two threads play the role at once. Release builds check
/// nothing.
///
///     const RolePlayer producer(producerRole_);
class ThreadRole {
    friend class RolePlayer;
#ifndef NDEBUG
    std::atomic<std::thread::id> player_;
#endif
};

/// Plays a role until the end of its scope.
class [[maybe_unused]] RolePlayer {
 public:
#ifndef NDEBUG
    explicit RolePlayer(ThreadRole& role) : role_(role) {
        const auto self = std::this_thread::get_id();
        std::thread::id none;
        const bool isFree =
            role_.player_.compare_exchange_strong(none, self, std::memory_order_relaxed);
        isOutermost_ = isFree;
        assert(isFree || none == self);
    }
    ~RolePlayer() {
        if (isOutermost_) {
            role_.player_.store({}, std::memory_order_relaxed);
        }
    }
#else
    explicit RolePlayer(ThreadRole& /*role*/) {}
#endif
    RolePlayer(const RolePlayer&) = delete;
    RolePlayer& operator=(const RolePlayer&) = delete;

#ifndef NDEBUG
 private:
    ThreadRole& role_;
    bool isOutermost_;
#endif
};

}  // namespace zav::detail
