#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

/// Reads the library's own two file formats without its sources, for what the sources do not report
/// and to find damage at which they would end the process.
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
    bool isDamaged = false;       ///< the packet after these is cut off
    std::uint64_t wholeSize = 0;  ///< bytes of the file before that packet
};

/// Empty if the file is not an Opus container. Throws `Failure` if it cannot be read.
std::optional<OpusContainer> examineOpusContainer(const std::filesystem::path& path);

struct SbcContainer {
    /// From the file's header, with the frame length of the first frame, because the header does
    /// not store the channel mode. Has 16 bits per channel, which `ZAVSbcFileSink` demands.
    zav::AudioStreamBasicDescription format;
    std::vector<std::byte> firstFrame;  ///< empty if there is none
    std::uint64_t audioSize = 0;        ///< bytes after the header

    std::uint64_t frameCount() const;
};

/// Empty if the file is not an SBC container. Throws `Failure` if it cannot be read, or if SBC does
/// not have its parameters.
std::optional<SbcContainer> examineSbcContainer(const std::filesystem::path& path);

/// An SBC stream's format with the 16 bits per channel that `ZAVSbcFileSink` demands.
zav::AudioStreamBasicDescription with16Bits(zav::AudioStreamBasicDescription sbc);

}  // namespace zavtool
