#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace zav::test {

/// A program that runs beside the test and ends with this.
class ChildProcess {
 public:
    /// `input` and `output` become its standard input and output; the other descriptors stay here
    /// if they close on exec. Throws std::runtime_error when it cannot be run.
    explicit ChildProcess(const std::vector<std::string>& command, int input = STDIN_FILENO,
                          int output = STDOUT_FILENO);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool hasEnded();

    /// Waits for its end.
    void wait();

 private:
    pid_t pid_ = -1;
};

}  // namespace zav::test
