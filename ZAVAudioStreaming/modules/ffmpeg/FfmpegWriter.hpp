#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/AvioFile.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketDuration.hpp"

namespace zav::detail {

/// See `CompressedFiles`.
std::unique_ptr<AudioFileWriter> createFfmpegFile(const std::filesystem::path& path,
                                                  FileHandle::IfExists ifExists,
                                                  AudioFileTypeID fileType,
                                                  const AudioStreamBasicDescription& dataFormat);

/// Writes compressed files through libavformat's muxers. The header goes out with the first packet,
/// because only then has the cookie had its chance to come; packets that cannot be written without
/// a cookie wait for it. Everything is brought into the file once a second of audio: MP4 is written
/// in fragments of that length, which a killed writer leaves readable.
class FfmpegWriter : public AudioFileWriter {
 public:
    FfmpegWriter(FileHandle file, AudioFileTypeID fileType,
                 const AudioStreamBasicDescription& dataFormat);

    std::uint64_t packetCount() override { return packetCount_; }
    std::uint64_t byteCount() override { return byteCount_; }
    std::uint32_t maximumPacketSize() override { return largestPacket_; }
    double durationInSeconds() override;
    std::span<const std::byte> magicCookie() override { return cookie_; }

    std::uint32_t writePackets(std::uint64_t firstPacket, PacketRun run,
                               const AudioStreamPacketDescription* descriptions,
                               const void* buffer) override;
    bool takesMagicCookie() const override;
    void setMagicCookie(std::span<const std::byte> cookie) override;
    void finish() override;

 private:
    struct HeldPacket {
        std::vector<std::byte> bytes;
        std::uint32_t frameCount;
    };

    void writePacket(std::span<const std::byte> packet, std::uint32_t describedFrames);
    void hold(std::span<const std::byte> packet, std::uint32_t describedFrames);
    /// Whether there is a cookie, or the file can do without.
    bool hasEnough() const;
    void start(bool hasPackets);
    void put(std::span<const std::byte> packet, std::uint32_t describedFrames);
    void send(AVPacket& packet);
    void flush();
    void changeCookie(std::vector<std::byte> extradata);
    void sendExtradata(std::span<const std::byte> extradata);
    std::vector<std::byte> streamInfoOf(std::uint64_t frameCount) const;
    void check(int result);

    AVCodecID codec_;
    std::uint32_t rate_;  // frames per second of packets' durations
    std::vector<std::byte> cookie_;
    std::vector<std::byte> extradata_;
    std::vector<HeldPacket> held_;
    std::size_t heldBytes_ = 0;

    std::uint64_t packetCount_ = 0;
    std::uint64_t byteCount_ = 0;
    std::uint32_t largestPacket_ = 0;
    std::uint64_t frameCount_ = 0;
    std::uint64_t flushedFrameCount_ = 0;

    AvioFile io_;
    FormatContext context_;  // null until the header is written
    std::optional<PacketDuration> duration_;
};

}  // namespace zav::detail
