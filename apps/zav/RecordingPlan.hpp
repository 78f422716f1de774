#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <string>

#include "FileType.hpp"
#include "RecordCommand.hpp"

namespace zavtool {

/// What `zav record` captures and what it encodes, as its options and the output's name demand.
struct RecordingPlan {
    const FileType* type;
    std::uint32_t codec;                        ///< the format ID of the audio in the file
    zav::AudioStreamBasicDescription captured;  ///< what the audio queue is asked for

    /// Whether a node of the library encodes. Otherwise the queue does, or nothing is encoded.
    bool usesEncoderNode() const { return captured.mFormatID != codec; }
};

/// Throws `UsageFailure` for an output that nothing can be recorded to, and for options that do not
/// go together.
RecordingPlan recordingPlanFor(const RecordOptions& options);

/// The extensions that `record` takes, by the codec that they choose: ".wav or .au for pcm; ...".
std::string recordableExtensions();

/// The rates and channels that a codec takes, as options of `zav record`, for a refusal.
std::string recordableWith(std::uint32_t codec);

}  // namespace zavtool
