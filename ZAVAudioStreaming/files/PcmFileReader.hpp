#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/files/PcmFileStructure.hpp"
#include "ZAVAudioStreaming/files/SndfileStream.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Reads PCM, float, A-law and mu-law files through libsndfile, as raw bytes in the file's own
/// encoding. One packet is one frame.
class PcmFileReader : public AudioFileReader {
 public:
    PcmFileReader(FileHandle file, const PcmFileStructure& structure);

    std::uint64_t packetCount() override { return frameCount_; }
    std::uint64_t byteCount() override { return frameCount_ * frameSize(); }
    std::uint32_t maximumPacketSize() override { return frameSize(); }
    std::span<const std::byte> magicCookie() override;

    PacketRun readPackets(std::uint64_t firstPacket, PacketRun room,
                          AudioStreamPacketDescription* descriptions, void* buffer) override;

 private:
    struct OpenFile {
        std::unique_ptr<SndfileStream> stream;
        AudioStreamBasicDescription dataFormat;
        std::uint64_t frameCount = 0;
    };

    static OpenFile open(FileHandle file, const PcmFileStructure& structure);
    PcmFileReader(OpenFile openFile, const PcmFileStructure& structure);

    std::uint32_t frameSize() const { return dataFormat().mBytesPerFrame; }

    PcmFileStructure structure_;
    std::unique_ptr<SndfileStream> stream_;
    std::uint64_t frameCount_;
    std::uint64_t position_ = 0;  // in frames
    std::optional<std::vector<std::byte>> cookie_;
};

}  // namespace zav::detail
