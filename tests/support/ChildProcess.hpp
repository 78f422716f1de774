#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace zav::test {

/// A program that runs beside the test. The destructor ends it.
class ChildProcess {
 public:
    /// `input` and `output` become the program's standard input and output. It inherits every other
    /// descriptor that is not close-on-exec. Throws std::runtime_error if it cannot be run.
    explicit ChildProcess(const std::vector<std::string>& command, int input = STDIN_FILENO,
                          int output = STDOUT_FILENO);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool hasEnded();

    /// Waits until the program has ended.
    void wait();

 private:
    pid_t pid_ = -1;
};

}  // namespace zav::test
