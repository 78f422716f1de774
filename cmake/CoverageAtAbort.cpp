// Linked into every program, library and module of a coverage build. Each of them has counters of
// its own, which are written when the process exits. A fatal stop aborts instead, so each writes
// its counters when SIGABRT comes, and then calls the handler before it.

#include <signal.h>

extern "C" void __gcov_dump();

namespace {

struct sigaction previous {};

void writeCounters(int number) {
    __gcov_dump();
    ::sigaction(number, &previous, nullptr);
    ::raise(number);
}

[[gnu::constructor]] void installHandler() {
    struct sigaction action {};
    action.sa_handler = writeCounters;
    action.sa_flags = SA_NODEFER;
    ::sigaction(SIGABRT, &action, &previous);
}

}  // namespace
