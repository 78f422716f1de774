#include <atomic>
#include <semaphore>
#include <thread>
#include <utility>

#include "ZAVAudioStreaming/queues/CallbackRunner.hpp"

namespace zav::detail {
namespace {

class ThreadRunner : public CallbackRunner {
 public:
    explicit ThreadRunner(std::function<void()> deliver) : CallbackRunner(std::move(deliver)) {}

    /// The thread shares ownership of the runner. A callback may dispose of its own queue. The
    /// queue is then destroyed before the thread ends.
    static std::shared_ptr<ThreadRunner> start(std::function<void()> deliver) {
        auto runner = std::make_shared<ThreadRunner>(std::move(deliver));
        runner->thread_ = std::thread([runner] { runner->run(); });
        return runner;
    }

    void wake() noexcept override {
        noteWakeUp();
        if (!isWoken_.exchange(true)) {
            wakeUps_.release();
        }
    }

    void end() override {
        isEnded_ = true;
        wake();
        if (isCurrentThread()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }

 private:
    void run() {
        for (;;) {
            wakeUps_.acquire();
            isWoken_ = false;
            if (isEnded_) {
                return;
            }
            answerWakeUps();
        }
    }

    std::binary_semaphore wakeUps_{0};
    std::atomic<bool> isWoken_{false};
    std::atomic<bool> isEnded_{false};
    std::thread thread_;
};

}  // namespace

std::shared_ptr<CallbackRunner> makeThreadRunner(std::function<void()> deliver) {
    return ThreadRunner::start(std::move(deliver));
}

}  // namespace zav::detail
