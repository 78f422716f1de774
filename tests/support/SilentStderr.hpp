#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

namespace zav::test {

/// Fails the test if a byte is written to standard error while this lives.
class SilentStderr {
 public:
    SilentStderr() {
        std::fflush(stderr);
        ::dup2(::fileno(printed_.get()), STDERR_FILENO);
    }
    ~SilentStderr() {
        std::fflush(stderr);
        ::dup2(real_, STDERR_FILENO);
        ::close(real_);
        std::string text(4096, '\0');
        text.resize(static_cast<std::size_t>(
            ::pread(::fileno(printed_.get()), text.data(), text.size(), 0)));
        EXPECT_EQ(text, "") << "on standard error";
    }

    SilentStderr(const SilentStderr&) = delete;
    SilentStderr& operator=(const SilentStderr&) = delete;

 private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    const std::unique_ptr<std::FILE, Close> printed_{std::tmpfile()};
    const int real_ = ::dup(STDERR_FILENO);
};

}  // namespace zav::test
