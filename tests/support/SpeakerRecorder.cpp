#include "tests/support/SpeakerRecorder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <span>

#include "tests/support/WaitFor.hpp"

namespace zav::test {

SpeakerRecorder::SpeakerRecorder()
    : file_(::open((folder_ / "heard.raw").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
      parec_({"parec", "--device=speaker.monitor", "--raw", "--format=s16le", "--rate=48000",
              "--channels=2", "--latency-msec=20"},
             STDIN_FILENO, file_) {
    const auto hasBegun = [this] {
        heard();
        return readBytes_ > 0;
    };
    waitFor([&] { return hasBegun() || parec_.hasEnded(); });
    EXPECT_TRUE(hasBegun()) << "parec does not record";
}

SpeakerRecorder::~SpeakerRecorder() {
    ::close(file_);
}

const std::vector<std::int16_t>& SpeakerRecorder::heard() {
    std::array<std::int16_t, 16384> piece{};
    for (;;) {
        const ssize_t bytes =
            ::pread(file_, piece.data(), sizeof(piece), static_cast<off_t>(readBytes_));
        const std::size_t samples = bytes > 0 ? static_cast<std::size_t>(bytes) / 2 : 0;
        if (samples == 0) {
            return heard_;
        }
        readBytes_ += 2 * samples;
        for (const std::int16_t sample : std::span(piece).first(samples)) {
            if (sample != 0) {
                heard_.push_back(sample);
            }
            silentCount_ = sample == 0 ? silentCount_ + 1 : 0;
        }
    }
}

const std::vector<std::int16_t>& SpeakerRecorder::waitForSamples(std::size_t count) {
    constexpr std::size_t kSilentEnd = 4 * 2 * 48000;
    silentCount_ = 0;
    waitFor([&] { return heard().size() >= count || silentCount_ >= kSilentEnd; });
    return heard();
}

}  // namespace zav::test
