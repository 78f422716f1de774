#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// Records what the sink "speaker" of a `SoundServer` plays, by parec, as 16-bit stereo at 48 kHz.
class SpeakerRecorder {
 public:
    /// Returns when it records.
    SpeakerRecorder();
    ~SpeakerRecorder();
    SpeakerRecorder(const SpeakerRecorder&) = delete;
    SpeakerRecorder& operator=(const SpeakerRecorder&) = delete;

    /// The samples of both channels in turn that were heard so far, without the silence before,
    /// after and between. Reads only what is new: to be asked as often as one likes.
    const std::vector<std::int16_t>& heard();

    /// Waits until so many samples were heard, or seconds of silence after all was played, behind
    /// which nothing comes any more; what was.
    const std::vector<std::int16_t>& waitForSamples(std::size_t count);

 private:
    const TemporaryFolder folder_;
    const int file_;
    ChildProcess parec_;
    std::size_t readBytes_ = 0;
    std::size_t silentCount_ = 0;  // samples since the last one that was heard
    std::vector<std::int16_t> heard_;
};

}  // namespace zav::test
