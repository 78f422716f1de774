#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <asio/bind_executor.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>

#include "ZAVAudioStreaming/queues/CallbackRunner.hpp"
#include "ZAVAudioStreaming/queues/GlobalThreads.hpp"
#include "ZAVAudioStreaming/support/Mutex.hpp"

namespace zav::detail {
namespace {

int makeEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    return event;
}

/// A dispatch queue takes locks and allocates, so the device thread must not use it. A wake-up is a
/// write to an event descriptor instead. A thread of the global queue waits for the event and
/// passes it on.
class DispatchRunner : public CallbackRunner, public std::enable_shared_from_this<DispatchRunner> {
 public:
    DispatchRunner(DispatchQueue& queue, std::function<void()> deliver)
        : CallbackRunner(std::move(deliver)),
          queue_(queue),
          strand_(globalThreads().get_executor()),
          event_(strand_, makeEvent()),
          eventHandle_(event_.native_handle()) {}

    void wake() noexcept override {
        noteWakeUp();
        const std::uint64_t one = 1;
        // The write fails only if the event is raised already.
        static_cast<void>(!::write(eventHandle_, &one, sizeof(one)));
    }

    void end() override {
        {
            const MutexLock lock(requesting_);
            isEnded_ = true;
        }
        // Cancel the wait on its own strand, so that the descriptor is not closed during a wait.
        asio::post(strand_, [self = shared_from_this()] { self->event_.cancel(); });
        if (!isCurrentThread()) {
            const MutexLock none(running_);
        }
    }

    void waitForEvent() {
        event_.async_wait(asio::posix::stream_descriptor::wait_read,
                          [self = shared_from_this()](const asio::error_code& error) {
                              if (!error && self->requestUnlessEnded()) {
                                  self->waitForEvent();
                              }
                          });
    }

 private:
    void clearEvent() {
        std::uint64_t count = 0;
        static_cast<void>(!::read(eventHandle_, &count, sizeof(count)));
    }

    bool requestUnlessEnded() {
        // The dispatch queue may be destroyed as soon as `end` has returned.
        const MutexLock lock(requesting_);
        if (isEnded_) {
            return false;
        }
        clearEvent();
        request();
        return true;
    }

    /// The piece of work that answers one request also answers requests that arrive meanwhile.
    void request() {
        if (requests_.fetch_add(1) == 0) {
            queue_.async([self = shared_from_this()] { self->answerRequests(); });
        }
    }

    void answerRequests() {
        for (std::uint64_t answered = requests_; answered > 0;) {
            answerOne();
            answered = requests_.fetch_sub(answered) - answered;
        }
    }

    void answerOne() {
        const MutexLock running(running_);
        if (isEnded_) {
            return;
        }
        answerWakeUps();
    }

    DispatchQueue& queue_;
    asio::strand<asio::thread_pool::executor_type> strand_;
    asio::posix::basic_stream_descriptor<asio::strand<asio::thread_pool::executor_type>> event_;
    int eventHandle_;
    std::atomic<std::uint64_t> requests_{0};
    std::atomic<bool> isEnded_{false};
    Mutex requesting_;  // held while work is passed to the dispatch queue
    Mutex running_;     // held while `deliver` runs
};

}  // namespace

std::shared_ptr<CallbackRunner> makeDispatchRunner(DispatchQueue& queue,
                                                   std::function<void()> deliver) {
    auto runner = std::make_shared<DispatchRunner>(queue, std::move(deliver));
    runner->waitForEvent();
    return runner;
}

}  // namespace zav::detail
