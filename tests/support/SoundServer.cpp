#include "tests/support/SoundServer.hpp"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace zav::test {
namespace {

/// Runs beside the server: prints how to reach it, then waits for the end of its input.
constexpr const char* kPrintAndWait =
    "env | grep -E '^(PULSE_|XDG_RUNTIME_DIR|SOUND_SERVER_PIDS)'; echo; exec cat";

}  // namespace

SoundServer::SoundServer(std::string kind, std::vector<std::string> options)
    : kind_(std::move(kind)), options_(std::move(options)) {
    // A test sets them after this, if it needs them.
    for (const char* const variable : {"PULSE_SINK", "PULSE_SOURCE"}) {
        ::unsetenv(variable);
    }
    start();
}

SoundServer::~SoundServer() {
    end();
}

void SoundServer::restart() {
    end();
    start();
}

void SoundServer::start() {
    std::array<int, 2> input{};
    std::array<int, 2> output{};
    if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::vector<std::string> command{ZAV_SOUND_SERVER, "--folder", (folder_ / "server").string()};
    command.insert(command.end(), options_.begin(), options_.end());
    command.insert(command.end(), {kind_, "sh", "-c", kPrintAndWait});
    script_ = std::make_unique<ChildProcess>(command, input[0], output[1]);
    leash_ = input[1];
    ::close(input[0]);
    ::close(output[1]);

    std::FILE* const printed = ::fdopen(output[0], "r");
    std::array<char, 1024> line{};
    pids_.clear();
    while (std::fgets(line.data(), line.size(), printed) != nullptr && line[0] != '\n') {
        const std::string text(line.data());
        const std::size_t equals = text.find('=');
        const std::string name = text.substr(0, equals);
        const std::string value = text.substr(equals + 1, text.size() - equals - 2);
        if (name == "SOUND_SERVER_PIDS") {
            std::istringstream numbers(value);
            for (pid_t pid = 0; numbers >> pid;) {
                pids_.push_back(pid);
            }
        } else {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
    }
    std::fclose(printed);
    if (pids_.empty()) {
        end();
        throw std::runtime_error("the sound server does not come up");
    }
}

void SoundServer::end() {
    if (script_ == nullptr) {
        return;
    }
    ::close(leash_);
    script_->wait();
    script_.reset();
}

void SoundServer::signal(int number) const {
    for (const pid_t pid : pids_) {
        ::kill(pid, number);
    }
}

}  // namespace zav::test
