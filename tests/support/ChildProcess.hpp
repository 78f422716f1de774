#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zav::test {

/// A program that runs beside the test and ends with this.
class ChildProcess {
 public:
    /// `input` and `output` become its standard input and output; the other descriptors stay here
    /// if they close on exec.
    ChildProcess(const std::vector<std::string>& command, int input, int output);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void terminate() const;

    /// Waits for its end; its exit code, or -1 when a signal ended it.
    int wait();

 private:
    pid_t pid_ = -1;
};

}  // namespace zav::test
