#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav::test {

/// The audio file service for tests of nodes, linked in place of the real one: a file in memory,
/// every argument noted, every call made to fail on demand.
struct ScriptedAudioFile {
    /// What the file holds.
    AudioStreamBasicDescription format;
    std::uint32_t packetSize = 2;
    std::vector<std::byte> audio;

    /// Statuses to answer with, by the function's name; what is not here succeeds.
    std::map<std::string, OSStatus> failures;
    bool givesNoID = false;
    /// 0: the property cannot be asked for.
    std::map<AudioFilePropertyID, OSStatus> propertyFailures;

    /// What the node did.
    std::vector<std::string> calls;
    std::filesystem::path path;
    AudioFilePermissions permissions{};
    AudioFileTypeID typeHint = 1;
    AudioFileTypeID createdType = 0;
    AudioFileFlags flags{};
    AudioStreamBasicDescription createdFormat;
    std::uint32_t readByteBudget = 0;
    std::vector<std::int64_t> writeIndices;
    std::vector<std::uint32_t> writePacketCounts;
    const AudioStreamPacketDescription* descriptions = nullptr;
    std::vector<std::byte> written;
    std::vector<std::byte> cookie;
    /// Packets that a write reports; 0: as many as it was given.
    std::uint32_t packetsReported = 0;
};

/// The one file of the running test. `resetAudioFile` makes it new.
ScriptedAudioFile& scriptedFile();
void resetAudioFile();

}  // namespace zav::test
