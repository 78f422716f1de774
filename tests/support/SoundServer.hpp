#pragma once

#include <signal.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// A private sound server (the `sound-server` beside this file), to which the environment of this
/// process leads, and whose end and standstill a test can bring about.
///
/// Threads: none that looks at the environment may run while one of these is made or started again.
class SoundServer {
 public:
    /// `kind` is "pulseaudio" or "pipewire"; `options` are those of `sound-server`. Throws
    /// std::runtime_error when the server does not come up.
    explicit SoundServer(std::string kind, std::vector<std::string> options = {});
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// SIGKILL ends it as a crash would. With SIGSTOP it does not run until SIGCONT, nor does it
    /// end.
    void signal(int number) const;
    /// Ends it, if that has not happened yet, and starts it again in the same place.
    void restart();

 private:
    void start();
    void end();

    const std::string kind_;
    const std::vector<std::string> options_;
    const TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> script_;
    /// The script runs until this is closed.
    int leash_ = -1;
    std::vector<pid_t> pids_;
};

}  // namespace zav::test
