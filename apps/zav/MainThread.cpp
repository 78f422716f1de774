#include "MainThread.hpp"

#include <semaphore.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

namespace zavtool {
namespace {

/// Never destroyed: threads of the library may call `wake` while the main thread ends.
sem_t* wakeups() {
    static sem_t semaphore = [] {
        sem_t made;
        ::sem_init(&made, 0, 0);
        return made;
    }();
    return &semaphore;
}

}  // namespace

std::atomic<int> MainThread::endingSignal_{0};

void MainThread::catchSignals() {
    wakeups();  // before a handler needs it
    struct sigaction action {};
    action.sa_handler = takeSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        ::sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // nohup ignores SIGHUP
            ::sigaction(signal, &action, nullptr);
        }
    }
}

void MainThread::takeSignal(int signal) {
    endingSignal_ = signal;
    const int error = errno;
    wake();
    errno = error;
}

void MainThread::wake() noexcept {
    ::sem_post(wakeups());
}

void MainThread::sleepUntil(Clock::time_point time) noexcept {
    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    timespec limit{};
    limit.tv_sec = static_cast<std::time_t>(seconds.count());
    limit.tv_nsec = std::chrono::nanoseconds(sinceEpoch - seconds).count();
    ::sem_clockwait(wakeups(), CLOCK_MONOTONIC, &limit);
    while (::sem_trywait(wakeups()) == 0) {
        // Several calls of `wake` end only one sleep.
    }
}

void MainThread::endBySignal() {
    std::signal(endingSignal_, SIG_DFL);
    std::raise(endingSignal_);
    std::abort();  // not reached: these signals end the process
}

}  // namespace zavtool
