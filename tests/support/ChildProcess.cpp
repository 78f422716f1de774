#include "tests/support/ChildProcess.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <stdexcept>

namespace zav::test {

ChildProcess::ChildProcess(const std::vector<std::string>& command, int input, int output) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    const int error =
        ::posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot run " + command[0]);
    }
}

ChildProcess::~ChildProcess() {
    if (!hasEnded()) {
        ::kill(pid_, SIGTERM);
        wait();
    }
}

bool ChildProcess::hasEnded() {
    if (pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
    }
    return pid_ < 0;
}

void ChildProcess::wait() {
    if (pid_ > 0) {
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

}  // namespace zav::test
