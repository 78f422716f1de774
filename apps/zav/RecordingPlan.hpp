#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <string>

#include "FileType.hpp"
#include "RecordCommand.hpp"

namespace zavtool {

/// The format that `zav record` captures and the codec of the file. The options and the output's
/// name decide both.
struct RecordingPlan {
    const FileType* type;
    std::uint32_t codec;                        ///< the format ID of the audio in the file
    zav::AudioStreamBasicDescription captured;  ///< the format requested from the audio queue

    /// True if a node of the library encodes. Otherwise the queue encodes, or nothing is encoded.
    bool usesEncoderNode() const { return captured.mFormatID != codec; }
};

/// Throws `UsageFailure` if `record` cannot write this type of output, or if the options contradict
/// each other.
RecordingPlan recordingPlanFor(const RecordOptions& options);

/// The extensions that `record` accepts, grouped by codec: ".wav or .au for pcm; ...".
std::string recordableExtensions();

/// The rates and channels that a codec accepts, written as options of `zav record`. Ends a refusal.
std::string recordableWith(std::uint32_t codec);

}  // namespace zavtool
