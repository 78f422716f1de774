#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// Records what the sink "speaker" of a `SoundServer` plays: 16-bit stereo at 48 kHz, by parec.
///
/// Threads: one at a time.
class SpeakerRecorder {
 public:
    /// Returns when the recording has begun.
    SpeakerRecorder();
    ~SpeakerRecorder();
    SpeakerRecorder(const SpeakerRecorder&) = delete;
    SpeakerRecorder& operator=(const SpeakerRecorder&) = delete;

    /// The samples that have been played so far, both channels in turn, without silence (samples of
    /// 0). Cheap to call often: it reads only what is new.
    const std::vector<std::int16_t>& heard();

    /// Waits until `count` samples have been played, or until four seconds of silence show that no
    /// more will follow. Returns all samples so far.
    const std::vector<std::int16_t>& waitForSamples(std::size_t count);

 private:
    const TemporaryFolder folder_;
    const int file_;
    ChildProcess parec_;
    std::size_t readBytes_ = 0;
    std::size_t silentCount_ = 0;  // samples of 0 since the last other one
    std::vector<std::int16_t> heard_;
};

}  // namespace zav::test
