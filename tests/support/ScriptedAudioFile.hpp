#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "tests/support/ScriptedCalls.hpp"

namespace zav::test {

/// The audio file service for tests of nodes, linked in place of the real one: a file in memory.
struct ScriptedAudioFile : ScriptedCalls {
    static constexpr std::uint32_t kPacketSize = 8;
    /// What there is to be read.
    std::vector<std::byte> audio;
    bool givesNoID = false;
    /// Packets that a write reports; 0: as many as it was given.
    std::uint32_t packetsReported = 0;

    AudioStreamBasicDescription createdFormat;
    /// What the last call brought along.
    const AudioStreamPacketDescription* descriptions = nullptr;
    std::vector<std::byte> written;
};

/// The one file of the running test. `resetAudioFile` makes it new.
ScriptedAudioFile& scriptedFile();
void resetAudioFile();

}  // namespace zav::test
