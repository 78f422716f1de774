#include "RealTimeProbe.hpp"

#include <pthread.h>

#include <cstdlib>
#include <new>

using zav::test::RealTimeProbe;

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    RealTimeProbe::countAllocation();
    return __real_malloc(size);
}
void __real_free(void* memory);
void __wrap_free(void* memory) {
    RealTimeProbe::countAllocation();
    __real_free(memory);
}
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    RealTimeProbe::countLock();
    return __real_pthread_mutex_lock(mutex);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

// The other forms would come down to the first by themselves, but not under the sanitizers.
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
