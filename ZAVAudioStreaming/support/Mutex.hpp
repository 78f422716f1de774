#pragma once

#include <mutex>
#include <shared_mutex>

/// Mutexes that the compiler checks. Mark a member with the mutex that guards it. Mark a function
/// with the mutex that its caller must hold:
///
///     void add() ZAV_REQUIRES(mutex_);
///     int count_ ZAV_GUARDED_BY(mutex_) = 0;
///
/// Clang then reports every access without the lock (-Wthread-safety). Other compilers ignore the
/// marks. See "Thread Safety Analysis" in Clang's manual.
#ifdef __clang__
#define ZAV_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define ZAV_THREAD_ATTRIBUTE(attribute)
#endif

#define ZAV_CAPABILITY(name) ZAV_THREAD_ATTRIBUTE(capability(name))
#define ZAV_SCOPED_CAPABILITY ZAV_THREAD_ATTRIBUTE(scoped_lockable)
#define ZAV_GUARDED_BY(mutex) ZAV_THREAD_ATTRIBUTE(guarded_by(mutex))
#define ZAV_PT_GUARDED_BY(mutex) ZAV_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define ZAV_ACQUIRED_AFTER(...) ZAV_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define ZAV_REQUIRES(...) ZAV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZAV_EXCLUDES(...) ZAV_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZAV_ACQUIRE(...) ZAV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZAV_RELEASE(...) ZAV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZAV_ACQUIRE_SHARED(...) ZAV_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define ZAV_RELEASE_SHARED(...) ZAV_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define ZAV_ASSERT_CAPABILITY(mutex) ZAV_THREAD_ATTRIBUTE(assert_capability(mutex))
#define ZAV_NO_THREAD_SAFETY_ANALYSIS ZAV_THREAD_ATTRIBUTE(no_thread_safety_analysis)
#define ZAV_RETURN_CAPABILITY(mutex) ZAV_THREAD_ATTRIBUTE(lock_returned(mutex))

namespace zav::detail {

/// A `std::mutex` that the compiler knows.
class ZAV_CAPABILITY("mutex") Mutex {
 public:
    void lock() ZAV_ACQUIRE() { mutex_.lock(); }
    void unlock() ZAV_RELEASE() { mutex_.unlock(); }

 private:
    std::mutex mutex_;
};

/// A `std::recursive_mutex` that the compiler knows.
class ZAV_CAPABILITY("mutex") RecursiveMutex {
 public:
    void lock() ZAV_ACQUIRE() { mutex_.lock(); }
    void unlock() ZAV_RELEASE() { mutex_.unlock(); }

 private:
    std::recursive_mutex mutex_;
};

/// A `std::shared_mutex` that the compiler knows.
class ZAV_CAPABILITY("mutex") SharedMutex {
 public:
    void lock() ZAV_ACQUIRE() { mutex_.lock(); }
    void unlock() ZAV_RELEASE() { mutex_.unlock(); }
    void lockShared() ZAV_ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlockShared() ZAV_RELEASE_SHARED() { mutex_.unlock_shared(); }

 private:
    std::shared_mutex mutex_;
};

/// Holds a lock until the end of its scope: `const MutexLock lock(mutex_);`. A lock that is not
/// const can be released earlier and taken again.
template <class Lockable>
class ZAV_SCOPED_CAPABILITY MutexLock {
 public:
    explicit MutexLock(Lockable& mutex) ZAV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() ZAV_RELEASE() {
        if (isHeld_) {
            mutex_.unlock();
        }
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() ZAV_ACQUIRE() {
        mutex_.lock();
        isHeld_ = true;
    }
    void unlock() ZAV_RELEASE() {
        isHeld_ = false;
        mutex_.unlock();
    }

 private:
    Lockable& mutex_;
    bool isHeld_ = true;
};

/// Shares a lock with other readers until the end of its scope.
class ZAV_SCOPED_CAPABILITY SharedLock {
 public:
    explicit SharedLock(SharedMutex& mutex) ZAV_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
        mutex_.lockShared();
    }
    ~SharedLock() ZAV_RELEASE() { mutex_.unlockShared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

 private:
    SharedMutex& mutex_;
};

}  // namespace zav::detail
