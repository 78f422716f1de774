#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {

/// A compressed file that another program makes of a few seconds of test audio, and what is true of
/// it.
struct CompressedSample {
    std::string name;     ///< of the file
    std::string command;  ///< makes $OUT of $IN, raw stereo at 44.1 kHz; empty: made by ourselves
    AudioFileTypeID fileType;
    std::uint32_t formatID;
    double rate;
    std::uint32_t channels;
    std::uint32_t framesPerPacket;
    std::size_t cookieSize;
    /// Frames that are heard; 0: as many as ffmpeg decodes.
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
