#pragma once

#include <atomic>

namespace zav::test {

/// While one lives, its thread does what a device's thread does for a queue; counts the calls that
/// such code must not make. Counted are those of the program and the library in it, where they are
/// linked to RealTimeProbe.cpp: by the linker's option --wrap, see tests/CMakeLists.txt, and by its
/// operator new.
class RealTimeProbe {
 public:
    RealTimeProbe() {
        ++probesOnThread_;
        ++probedCalls_;
    }
    ~RealTimeProbe() { --probesOnThread_; }

    RealTimeProbe(const RealTimeProbe&) = delete;
    RealTimeProbe& operator=(const RealTimeProbe&) = delete;

    /// As if one lived on this thread from now on.
    static void watchThisThread() { probesOnThread_ = 1; }

    /// Since `reset`, on all threads.
    static int probedCallCount() { return probedCalls_; }
    static int allocationCount() { return allocations_; }
    static int lockCount() { return locks_; }
    static void reset() { probedCalls_ = allocations_ = locks_ = 0; }

    static void countAllocation() { allocations_ += probesOnThread_ > 0 ? 1 : 0; }
    static void countLock() { locks_ += probesOnThread_ > 0 ? 1 : 0; }

 private:
    static inline thread_local int probesOnThread_ = 0;
    static inline std::atomic<int> probedCalls_ = 0;
    static inline std::atomic<int> allocations_ = 0;
    static inline std::atomic<int> locks_ = 0;
};

}  // namespace zav::test
