#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketScan.hpp"

namespace zav::detail {

/// See `CompressedFiles`.
std::unique_ptr<AudioFileReader> openFfmpegFile(FileHandle& file);

/// Reads compressed files. libavformat reports the contents of the file. When a caller first needs
/// the places of the packets, libavformat reports all of them, once. Packets are then read directly
/// from their places, in any order.
class FfmpegReader : public AudioFileReader {
 public:
    explicit FfmpegReader(FfmpegInput input)
        : AudioFileReader(input.fileType, input.dataFormat), input_(std::move(input)) {}

    std::uint64_t packetCount() override { return table().size(); }
    std::uint64_t byteCount() override { return table().byteCount(); }
    std::uint32_t maximumPacketSize() override { return table().largestSize(); }
    double durationInSeconds() override;
    std::span<const std::byte> magicCookie() override { return input_.cookie; }

    PacketRun readPackets(std::uint64_t firstPacket, PacketRun room,
                          AudioStreamPacketDescription* descriptions, void* buffer) override;

 private:
    /// Scans the file on the first call. If that scan throws, every later call throws the same
    /// exception.
    const PacketTable& table();
    void readBytes(std::uint64_t offset, void* buffer, std::size_t size);

    FfmpegInput input_;
    std::optional<PacketScan> scan_;
    std::exception_ptr scanFailure_;  // rethrown, because half a scan cannot be resumed
};

}  // namespace zav::detail
