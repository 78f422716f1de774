#include <algorithm>
#include <cstring>

#include "QueueUnderTest.hpp"
#include "Ramp.hpp"
#include "VirtualDevice.hpp"
#include "WaitFor.hpp"
#include "Worlds.hpp"

namespace zav::test {
namespace {

class VirtualWorld : public AudioWorld {
 public:
    VirtualWorld() {
        device_.receiver = [this](std::span<const std::byte> sounding) { hear(sounding); };
        device_.speaker = [this](std::span<std::byte> captured) { speak(captured); };
    }

    bool until(const std::function<bool()>& isDone) override {
        return waitFor(isDone, [this] { pass(0.005); });
    }
    void pass(double seconds) override { device_.advance(seconds, settleQueues); }

    std::vector<std::int16_t> heard() override { return heard_; }
    void say(std::vector<std::int16_t> samples) override {
        toSay_ = std::move(samples);
        said_ = 0;
    }
    bool hasSaidAll() override { return said_ == toSay_.size(); }

    void lose() override { device_.unplug(); }
    void bringBack() override { device_.plugIn(); }

 private:
    void hear(std::span<const std::byte> sounding) {
        const auto samples = withoutSilence(samplesOf(sounding));
        heard_.insert(heard_.end(), samples.begin(), samples.end());
    }

    void speak(std::span<std::byte> captured) {
        const std::size_t size = std::min(captured.size(), (toSay_.size() - said_) * 2);
        if (size > 0) {
            std::memcpy(captured.data(), toSay_.data() + said_, size);
            said_ += size / 2;
        }
    }

    VirtualDevice device_;
    // Used on the test's thread only, because time passes there.
    std::vector<std::int16_t> heard_;
    std::vector<std::int16_t> toSay_;
    std::size_t said_ = 0;
};

}  // namespace

std::vector<std::string> worldNames() {
    return {"virtual"};
}

std::unique_ptr<AudioWorld> makeWorld(const std::string& /*name*/) {
    return std::make_unique<VirtualWorld>();
}

}  // namespace zav::test
