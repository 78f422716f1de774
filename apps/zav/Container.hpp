#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

/// The library's own two file formats, looked at from outside: for what their sources do not tell,
/// and before those would end the process.
namespace zavtool {

/// One packet of a file.
struct PacketInfo {
    std::uint32_t size = 0;    ///< bytes
    std::uint32_t frames = 0;  ///< sample frames at the stream's rate
};

double secondsIn(const std::vector<PacketInfo>& packets, double sampleRate);
std::uint32_t largestOf(const std::vector<PacketInfo>& packets);

struct OpusContainer {
    zav::AudioStreamBasicDescription format;
    std::vector<PacketInfo> packets;
    bool isDamaged = false;       ///< behind these, one is cut off
    std::uint64_t wholeSize = 0;  ///< bytes of the file up to there
};

/// Empty when the file is no Opus container. Throws `Failure` when it cannot be read.
std::optional<OpusContainer> examineOpusContainer(const std::filesystem::path& path);

struct SbcContainer {
    /// As the file's header tells it, but with the lengths of its first frame: the header does not
    /// tell the channel mode. With 16 bits per channel, as a `ZAVSbcFileSink` takes it.
    zav::AudioStreamBasicDescription format;
    std::vector<std::byte> firstFrame;  ///< empty when there is none
    std::uint64_t audioSize = 0;        ///< bytes behind the header

    std::uint64_t frameCount() const;
};

/// Empty when the file is no SBC container. Throws `Failure` when it cannot be read, or when its
/// parameters are none of SBC's.
std::optional<SbcContainer> examineSbcContainer(const std::filesystem::path& path);

/// An SBC stream's format, declared as `ZAVSbcFileSink` demands it.
zav::AudioStreamBasicDescription with16Bits(zav::AudioStreamBasicDescription sbc);

}  // namespace zavtool
