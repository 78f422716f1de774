#pragma once

#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/files/SndfileStream.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Writes PCM, float, A-law and mu-law files through libsndfile, as raw bytes in the file's own
/// encoding. One packet is one frame.
///
/// The header is brought up to date after every second of audio, so a writer that is killed loses
/// one second at most. An update at every write would cost three times as much as the writing
/// itself. An update once a second costs a third of the writing.
class PcmFileWriter : public AudioFileWriter {
 public:
    PcmFileWriter(FileHandle file, const PcmFileType& type, int sndfileFormat,
                  const AudioStreamBasicDescription& dataFormat);

    std::uint64_t packetCount() override { return frameCount_; }
    std::uint64_t byteCount() override { return frameCount_ * frameSize(); }
    std::uint32_t maximumPacketSize() override { return frameSize(); }
    std::span<const std::byte> magicCookie() override { return cookie_; }

    std::uint32_t writePackets(std::uint64_t firstPacket, PacketRun run,
                               const AudioStreamPacketDescription* descriptions,
                               const void* buffer) override;
    bool takesMagicCookie() const override { return cookieCapacity_ > 0; }
    void setMagicCookie(std::span<const std::byte> cookie) override;
    void finish() override;

 private:
    std::uint32_t frameSize() const { return dataFormat().mBytesPerFrame; }
    /// Corrects a header that libsndfile is about to write.
    void correct(std::span<std::byte> header) const;
    void moveTo(std::uint64_t frame);
    void fillWithSilence(std::uint64_t endFrame);
    void writeFrames(const void* buffer, std::uint64_t frameCount);

    // `stream_` reads these members during its construction, so they are declared before it.
    std::uint64_t frameCount_ = 0;
    std::vector<std::byte> cookie_;
    std::size_t cookieCapacity_ = 0;

    SF_INFO info_;
    SndfileStream stream_;
    std::uint64_t mostFrames_;
    std::uint64_t position_ = 0;  // frames
    std::uint64_t framesInHeader_ = 0;
};

}  // namespace zav::detail
