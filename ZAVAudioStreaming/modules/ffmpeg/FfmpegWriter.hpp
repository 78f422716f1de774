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

/// Writes compressed files through libavformat's muxers.
///
/// The header is written with the first packet, so that a cookie can be set until then. Packets
/// that need a cookie are held in memory until it is set. All output is flushed after every second
/// of audio. MP4 is written in fragments of that length, which stay readable if the writer is
/// killed.
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
    /// Keeps a packet in memory until the cookie is set.
    void hold(std::span<const std::byte> packet, std::uint32_t describedFrames);
    /// True if the header can be written: the cookie is set, can be made, or is not needed.
    bool canStart() const;
    /// Writes the header.
    void start(bool hasPackets);
    /// Writes a packet.
    void put(std::span<const std::byte> packet, std::uint32_t describedFrames);
    void send(AVPacket& packet);
    void flush();
    /// Replaces the cookie after the header has been written, if the type still allows that. FLAC's
    /// header is rewritten at the end. MP4's is written with the first fragment. ADTS repeats
    /// object type, rate and channels in each packet, so these cannot change.
    void changeCookie(std::vector<std::byte> extradata);
    /// Sends extradata as side data of an empty packet. After the header, muxers accept extradata
    /// in this way.
    void sendExtradata(std::span<const std::byte> extradata);
    /// FLAC's header for a file of `frameCount` frames (0: unknown). The checksum in the header
    /// covers the audio that the encoder received. It is cleared if the file has another number of
    /// frames.
    std::vector<std::byte> streamInfoOf(std::uint64_t frameCount) const;
    /// Throws if `result` is an error. A failed system call takes precedence over libavformat's
    /// code.
    void check(int result);

    AVCodecID codec_;
    std::uint32_t rate_;  // of packets' durations, in Hz
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
