#include "tests/support/SpeakerRecorder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "tests/support/WaitFor.hpp"

namespace zav::test {

SpeakerRecorder::SpeakerRecorder()
    : output_(::open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
      parec_({"parec", "--device=speaker.monitor", "--raw", "--format=s16le", "--rate=48000",
              "--channels=2", "--latency-msec=20"},
             STDIN_FILENO, output_) {
    ::close(output_);
    EXPECT_TRUE(waitFor([this] { return std::filesystem::file_size(file_) > 0; }))
        << "parec does not record";
}

std::vector<std::int16_t> SpeakerRecorder::heard() const {
    const std::vector<std::byte> bytes = readFile(file_);
    std::vector<std::int16_t> samples;
    for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) {
        std::int16_t sample = 0;
        std::memcpy(&sample, &bytes[at], sizeof(sample));
        if (sample != 0) {
            samples.push_back(sample);
        }
    }
    return samples;
}

std::vector<std::int16_t> SpeakerRecorder::waitForSamples(std::size_t count) const {
    waitFor([this, count] { return heard().size() >= count; });
    return heard();
}

}  // namespace zav::test
