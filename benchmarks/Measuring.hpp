#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <vector>

/// Measures processor time. The benchmarks time many short slices of work and report the median. A
/// machine that does other work, or changes its clock rate, disturbs a few slices, not the median.
namespace zav::benchmarks {

/// Processor time that the calling thread has taken, in nanoseconds.
inline double threadNanoseconds() {
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

/// Nanoseconds of processor time that `work` takes.
template <class Work>
double nanosecondsOf(Work&& work) {
    const double start = threadNanoseconds();
    work();
    return threadNanoseconds() - start;
}

/// The median of `values`, which must not be empty.
inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace zav::benchmarks
