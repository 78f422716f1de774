#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/ChildProcess.hpp"
#include "tests/support/SoundServer.hpp"
#include "tests/support/SpeakerRecorder.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/WaitFor.hpp"
#include "tests/support/Worlds.hpp"

namespace zav::test {
namespace {

class LiveWorld : public AudioWorld {
 public:
    explicit LiveWorld(const std::string& server) : server_(server, {"--no-shared-memory"}) {
        hearing_.emplace();
    }

    bool until(const std::function<bool()>& isDone) override { return waitFor(isDone); }
    void pass(double seconds) override {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    std::vector<std::int16_t> heard() override { return hearing_->heard(); }
    void say(std::vector<std::int16_t> samples) override {
        // Silence goes first, because the way into the sink may lose the beginning of a stream.
        samples.insert(samples.begin(), 24000, 0);
        const auto file = folder_ / "said.raw";
        writeFile(file, std::as_bytes(std::span(samples)));
        speaking_.emplace(std::vector<std::string>{"paplay", "--raw", "--device=mic",
                                                   "--format=s16le", "--rate=48000", "--channels=1",
                                                   file.string()});
    }
    bool hasSaidAll() override { return !speaking_ || speaking_->hasEnded(); }
    void lose() override { server_.signal(SIGKILL); }
    void bringBack() override {
        server_.restart();
        hearing_.emplace();
    }

 private:
    SoundServer server_;
    TemporaryFolder folder_;
    std::optional<ChildProcess> speaking_;
    std::optional<SpeakerRecorder> hearing_;
};

}  // namespace

std::vector<std::string> worldNames() {
    return {"pulseaudio", "pipewire"};
}

std::unique_ptr<AudioWorld> makeWorld(const std::string& name) {
    return std::make_unique<LiveWorld>(name);
}

}  // namespace zav::test
