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

/// Reads compressed files. libavformat tells what is in the file and, once and at first need, where
/// its packets are; the packets themselves are then read from their places, in any order.
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
    const PacketTable& table();
    void readBytes(std::uint64_t offset, void* buffer, std::size_t size);

    FfmpegInput input_;
    std::optional<PacketScan> scan_;
    std::exception_ptr scanFailure_;  // half a scan cannot be gone on with
};

}  // namespace zav::detail
