#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// A compressed file that another program makes from a few seconds of test audio, and its
/// properties.
struct CompressedSample {
    std::string name;     ///< of the file
    std::string command;  ///< makes $OUT from $IN, raw stereo at 44.1 kHz; empty: made by the tests
    AudioFileTypeID fileType;
    std::uint32_t formatID;
    double rate;
    std::uint32_t channels;
    std::uint32_t framesPerPacket;
    std::size_t cookieSize;
    /// Frames without priming and padding; 0: as many as ffmpeg decodes.
    std::uint64_t frameCount = 0;

    std::uint32_t formatFlags() const {
        return formatID == kAudioFormatALAC || formatID == kAudioFormatFLAC
                   ? kLosslessFormatFlag_16BitSourceData
                   : 0;
    }
};

/// One sample of each kind that the service reads.
const std::vector<CompressedSample>& compressedSamples();

/// Makes samples on demand, in a folder of its own.
class CompressedSampleFolder {
 public:
    /// The path of the sample with this name.
    std::filesystem::path operator[](const std::string& name);

    std::filesystem::path operator/(const std::string& name) const { return folder_ / name; }

 private:
    TemporaryFolder folder_;
};

}  // namespace zav::test
