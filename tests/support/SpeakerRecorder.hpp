#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/ChildProcess.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// Records what the sink "speaker" of a `SoundServer` plays, by parec, as 16-bit stereo at 48 kHz.
class SpeakerRecorder {
 public:
    /// Returns when it records.
    SpeakerRecorder();

    /// The left samples that were heard so far, without the silence before, after and between.
    std::vector<std::int16_t> heard() const;

    /// Waits until so many samples were heard; what was.
    std::vector<std::int16_t> waitForSamples(std::size_t count) const;

 private:
    const TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "heard.raw";
    const int output_;
    ChildProcess parec_;
};

}  // namespace zav::test
