#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

/// Reads the library's own two file formats without the library's source nodes. Finds facts that
/// the source nodes do not report, and damage at which the source nodes would end the process.
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
    bool isDamaged = false;       ///< the packet after `packets` is cut off
    std::uint64_t wholeSize = 0;  ///< bytes of the file before the cut packet
};

/// Empty if the file is not an Opus container. Throws `Failure` if the file cannot be read.
std::optional<OpusContainer> examineOpusContainer(const std::filesystem::path& path);

struct SbcContainer {
    /// Made from the file's header. Only the frame length comes from the first frame, because
    /// the header does not store the channel mode. The format has 16 bits per channel, because
    /// `ZAVSbcFileSink` demands 16.
    zav::AudioStreamBasicDescription format;
    std::vector<std::byte> firstFrame;  ///< empty if there is no frame
    std::uint64_t audioSize = 0;        ///< bytes after the header

    std::uint64_t frameCount() const;
};

/// Empty if the file is not an SBC container. Throws `Failure` if the file cannot be read, or if
/// SBC does not allow the parameters in the header.
std::optional<SbcContainer> examineSbcContainer(const std::filesystem::path& path);

/// An SBC stream's format with the 16 bits per channel that `ZAVSbcFileSink` demands.
zav::AudioStreamBasicDescription with16Bits(zav::AudioStreamBasicDescription sbc);

}  // namespace zavtool
