#include "tests/support/AllocationCount.hpp"

#include <cstdlib>
#include <new>

namespace zav::test {

thread_local bool countsAllocations = false;
std::atomic<int> allocationCount = 0;

}  // namespace zav::test

void* operator new(std::size_t size) {
    if (zav::test::countsAllocations) {
        ++zav::test::allocationCount;
    }
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
