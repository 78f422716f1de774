#pragma once

#include <atomic>

/// Counts what is allocated by C++ code on threads that ask for it: linking this replaces the
/// program's operator new.
namespace zav::test {

extern thread_local bool countsAllocations;
extern std::atomic<int> allocationCount;

}  // namespace zav::test
