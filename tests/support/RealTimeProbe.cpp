#include "RealTimeProbe.hpp"

#include <pthread.h>

#include <cstdlib>

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
void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size) {
    RealTimeProbe::countAllocation();
    return __real__Znwm(size);
}
void __real__ZdlPvm(void* memory, std::size_t size);
void __wrap__ZdlPvm(void* memory, std::size_t size) {
    RealTimeProbe::countAllocation();
    __real__ZdlPvm(memory, size);
}
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    RealTimeProbe::countLock();
    return __real_pthread_mutex_lock(mutex);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
