#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "tests/support/ScriptedCalls.hpp"

namespace zav::test {

/// A file in memory. Tests of nodes link it in place of the audio file service.
struct ScriptedAudioFile : ScriptedCalls {
    static constexpr std::uint32_t kPacketSize = 8;
    /// The audio that can be read.
    std::vector<std::byte> audio;
    bool givesNoID = false;
    /// Packets that a write reports. 0: the number that it was given.
    std::uint32_t packetsReported = 0;

    AudioStreamBasicDescription createdFormat;
    /// Of the last call.
    const AudioStreamPacketDescription* descriptions = nullptr;
    std::vector<std::byte> written;
};

/// The file of the running test. `resetAudioFile` makes a new one.
ScriptedAudioFile& scriptedFile();
void resetAudioFile();

}  // namespace zav::test
