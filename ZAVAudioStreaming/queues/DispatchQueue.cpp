#include "ZAVAudioStreaming/platform/DispatchQueue.hpp"

#include <algorithm>
#include <asio/post.hpp>
#include <thread>
#include <utility>

#include "ZAVAudioStreaming/queues/GlobalThreads.hpp"

namespace zav {

using namespace detail;

namespace {

class GlobalQueue : public DispatchQueue {
 public:
    void async(std::function<void()> work) override {
        asio::post(globalThreads(), std::move(work));
    }
};

}  // namespace

asio::thread_pool& detail::globalThreads() {
    // Use at least two threads: work that waits must not block other work.
    static auto* const threads =
        new asio::thread_pool(std::max<std::size_t>(2, std::thread::hardware_concurrency()));
    return *threads;
}

DispatchQueue& DispatchQueue::global(QualityOfService /*qos*/) {
    static auto* const queue = new GlobalQueue;
    return *queue;
}

}  // namespace zav
