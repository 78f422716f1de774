// Runs a command and appends one line to a file: its processor time (user and system) and its wall
// time in microseconds, its peak resident memory in KiB, and the number of wake-ups of its threads
// (voluntary context switches). The figures include all threads, and all children that the command
// has waited for.
//
//     zav_measure_run RESULTS OUTPUT COMMAND [ARGUMENT...]
//
// OUTPUT is the file that becomes the command's standard output, or "-" to keep this program's.
// Exit code: the command's, or 127 if it cannot be run. This program ignores SIGINT, so a command
// that exits in order after SIGINT is measured like any other.
//
// The kernel's peak memory of a process includes the memory before exec. That memory belongs to
// this program, so this program must be smaller than the measured program. For this reason it is
// linked statically and uses C functions.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr int kCannotRun = 127;
constexpr int kWrongUsage = 2;

double microseconds(const timeval& time) {
    return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec);
}

double wallMicroseconds() {
    std::timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return 1e6 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_nsec);
}

int failed(const char* what) {
    std::fprintf(stderr, "zav_measure_run: %s: %s\n", what, std::strerror(errno));
    return kCannotRun;
}

int becomeCommand(const char* output, char** command) {
    if (std::strcmp(output, "-") != 0) {
        const int descriptor = ::open(output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (descriptor == -1 || ::dup2(descriptor, STDOUT_FILENO) == -1) {
            return failed(output);
        }
    }
    ::execvp(command[0], command);
    return failed(command[0]);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount < 4) {
        std::fputs("Usage: zav_measure_run RESULTS OUTPUT COMMAND [ARGUMENT...]\n", stderr);
        return kWrongUsage;
    }
    const double start = wallMicroseconds();
    const pid_t child = ::fork();
    if (child == -1) {
        return failed("fork");
    }
    if (child == 0) {
        ::_exit(becomeCommand(arguments[2], arguments + 3));
    }
    std::signal(SIGINT, SIG_IGN);
    int status = 0;
    rusage usage{};
    while (::wait4(child, &status, 0, &usage) == -1) {
        if (errno != EINTR) {
            return failed("wait4");
        }
    }
    const double wall = wallMicroseconds() - start;
    if (!WIFEXITED(status)) {
        std::fprintf(stderr, "zav_measure_run: %s: ended by signal %d\n", arguments[3],
                     WTERMSIG(status));
        return kCannotRun;
    }

    std::FILE* const results = std::fopen(arguments[1], "a");
    if (results == nullptr) {
        return failed(arguments[1]);
    }
    std::fprintf(results, "%.0f %.0f %ld %ld\n",
                 microseconds(usage.ru_utime) + microseconds(usage.ru_stime), wall, usage.ru_maxrss,
                 usage.ru_nvcsw);
    if (std::fclose(results) != 0) {
        return failed(arguments[1]);
    }
    return WEXITSTATUS(status);
}
