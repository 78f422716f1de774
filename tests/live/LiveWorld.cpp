#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "tests/support/SoundServer.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/Worlds.hpp"

extern char** environ;

namespace zav::test {
namespace {

/// Another program, ended with this object.
class Process {
 public:
    Process() = default;
    ~Process() { end(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Its output goes to `output`, unless that is negative.
    void start(std::vector<std::string> words, int output) {
        end();
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        if (output >= 0) {
            ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        }
        if (::posix_spawnp(&id_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
            id_ = -1;
        }
        ::posix_spawn_file_actions_destroy(&actions);
    }
    bool hasEnded() {
        if (id_ > 0 && ::waitpid(id_, nullptr, WNOHANG) == id_) {
            id_ = -1;
        }
        return id_ < 0;
    }
    void end() {
        if (!hasEnded()) {
            ::kill(id_, SIGKILL);
            ::waitpid(id_, nullptr, 0);
            id_ = -1;
        }
    }

 private:
    pid_t id_ = -1;
};

/// Records what the speaker plays.
class Hearing {
 public:
    ~Hearing() { end(); }

    /// Returns when the recording has begun.
    void start() {
        end();
        std::array<int, 2> pipe{};
        if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
            return;
        }
        recorder_.start({"parec", "--raw", "--device=speaker.monitor", "--format=s16le",
                         "--rate=48000", "--channels=2", "--latency-msec=20"},
                        pipe[1]);
        ::close(pipe[1]);
        hasBegun_ = false;
        reader_ = std::thread([this, from = pipe[0]] { read(from); });
        while (!hasBegun_ && !recorder_.hasEnded()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    void end() {
        recorder_.end();
        if (reader_.joinable()) {
            reader_.join();
        }
    }
    std::vector<std::int16_t> samples() const {
        const std::lock_guard lock(mutex_);
        return samples_;
    }

 private:
    void read(int from) {
        std::vector<std::byte> bytes;
        std::array<std::byte, 4096> piece{};
        for (ssize_t size = 0; (size = ::read(from, piece.data(), piece.size())) > 0;) {
            hasBegun_ = true;
            bytes.insert(bytes.end(), piece.begin(), piece.begin() + size);
            std::vector<std::int16_t> samples(bytes.size() / 2);
            std::memcpy(samples.data(), bytes.data(), 2 * samples.size());
            bytes.erase(bytes.begin(),
                        bytes.begin() + static_cast<std::ptrdiff_t>(2 * samples.size()));
            std::erase(samples, 0);
            const std::lock_guard lock(mutex_);
            samples_.insert(samples_.end(), samples.begin(), samples.end());
        }
        ::close(from);
    }

    Process recorder_;
    std::thread reader_;
    std::atomic<bool> hasBegun_{false};
    mutable std::mutex mutex_;
    std::vector<std::int16_t> samples_;
};

class LiveWorld : public AudioWorld {
 public:
    explicit LiveWorld(const std::string& kind) : server_(kind) { hearing_.start(); }

    bool until(const std::function<bool()>& isDone) override {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!isDone()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }
    void pass(double seconds) override {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    std::vector<std::int16_t> heard() override { return hearing_.samples(); }
    void say(std::vector<std::int16_t> samples) override {
        // Some silence first: what a stream begins with may be lost on the way into the sink.
        samples.insert(samples.begin(), 24000, 0);
        const auto file = folder_ / "said.raw";
        writeFile(file, std::as_bytes(std::span(samples)));
        speaking_.start({"paplay", "--raw", "--device=mic", "--format=s16le", "--rate=48000",
                         "--channels=1", file.string()},
                        -1);
    }
    bool hasSaidAll() override { return speaking_.hasEnded(); }
    void lose() override {
        hearing_.end();
        server_.kill();
    }
    void bringBack() override {
        server_.restart();
        hearing_.start();
    }

 private:
    SoundServer server_;
    TemporaryFolder folder_;
    Process speaking_;
    Hearing hearing_;
};

}  // namespace

std::vector<WorldKind> worldKinds() {
    return {WorldKind::pulseAudio, WorldKind::pipeWire};
}

std::unique_ptr<AudioWorld> makeWorld(WorldKind kind) {
    return std::make_unique<LiveWorld>(kind == WorldKind::pipeWire ? "pipewire" : "pulseaudio");
}

}  // namespace zav::test
