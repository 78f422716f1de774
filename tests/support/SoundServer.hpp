#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "TemporaryFolder.hpp"

namespace zav::test {

/// A private sound server, started by the script beside this file: null sinks "speaker" and "mic"
/// of 48 kHz, stereo and mono. While it lives, this process and those that it starts talk to it.
class SoundServer {
 public:
    /// `kind` is what the script calls it. Throws std::runtime_error when it does not come up.
    explicit SoundServer(std::string kind);
    ~SoundServer();

    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// Ends it as a crash would, without a word.
    void kill();
    /// It stops answering, and goes on.
    void freeze();
    void thaw();
    /// Starts it again, at the same address, after `kill`.
    void restart();

    /// Whether the machine has what it takes.
    static bool isInstalled(const std::string& kind);

 private:
    void start();
    void end();
    void signal(int number) const;

    std::string kind_;
    TemporaryFolder folder_;
    pid_t script_ = -1;
    int toScript_ = -1;  // it ends when this is closed
    std::vector<pid_t> servers_;
};

}  // namespace zav::test
