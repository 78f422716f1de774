#include "SoundServer.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace zav::test {
namespace {

/// What the script runs beside the server: it tells what the server is reached by, and ends when
/// its input does.
constexpr auto kTellAndWait =
    "for name in PULSE_SERVER PULSE_COOKIE PULSE_CLIENTCONFIG XDG_RUNTIME_DIR SOUND_SERVER_PIDS; "
    "do "
    "eval \"echo $name=\\$$name\"; done; echo; exec cat >/dev/null";

std::string readUntilBlankLine(int from) {
    std::string text;
    std::array<char, 1> next{};
    while (::read(from, next.data(), 1) == 1) {
        text.push_back(next[0]);
        if (text.ends_with("\n\n")) {
            return text;
        }
    }
    throw std::runtime_error("the sound server does not come up");
}

}  // namespace

SoundServer::SoundServer(std::string kind) : kind_(std::move(kind)) {
    for (const char* const name : {"PULSE_SINK", "PULSE_SOURCE", "PULSE_RUNTIME_PATH"}) {
        ::unsetenv(name);
    }
    start();
}

SoundServer::~SoundServer() {
    end();
}

void SoundServer::start() {
    std::array<int, 2> input{};
    std::array<int, 2> output{};
    if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const std::string folder = (folder_ / "").string();
    script_ = ::fork();
    if (script_ == 0) {
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::execl(ZAV_SOUND_SERVER, ZAV_SOUND_SERVER, "--folder", folder.c_str(), kind_.c_str(), "sh",
                "-c", kTellAndWait, nullptr);
        ::_exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    toScript_ = input[1];
    std::istringstream lines(readUntilBlankLine(output[0]));
    ::close(output[0]);
    for (std::string line; std::getline(lines, line) && !line.empty();) {
        const std::size_t end = line.find('=');
        const std::string name = line.substr(0, end);
        const std::string value = line.substr(end + 1);
        if (name != "SOUND_SERVER_PIDS") {
            ::setenv(name.c_str(), value.c_str(), 1);
            continue;
        }
        std::istringstream ids(value);
        servers_.clear();
        for (pid_t id = 0; ids >> id;) {
            servers_.push_back(id);
        }
    }
}

void SoundServer::end() {
    if (toScript_ >= 0) {
        ::close(std::exchange(toScript_, -1));
        ::waitpid(script_, nullptr, 0);
    }
}

void SoundServer::signal(int number) const {
    for (const pid_t server : servers_) {
        ::kill(server, number);
    }
}

void SoundServer::kill() {
    signal(SIGKILL);
    end();
    servers_.clear();
}

void SoundServer::freeze() {
    signal(SIGSTOP);
}

void SoundServer::thaw() {
    signal(SIGCONT);
}

void SoundServer::restart() {
    start();
}

bool SoundServer::isInstalled(const std::string& kind) {
    const std::string command = "command -v pactl >/dev/null && command -v " +
                                (kind == "pipewire" ? std::string("pipewire-pulse") : kind) +
                                " >/dev/null";
    return std::system(command.c_str()) == 0;
}

}  // namespace zav::test
