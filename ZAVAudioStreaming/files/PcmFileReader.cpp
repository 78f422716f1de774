#include "ZAVAudioStreaming/files/PcmFileReader.hpp"

#include <algorithm>
#include <utility>

#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"

namespace zav::detail {

PcmFileReader::OpenFile PcmFileReader::open(FileHandle file, const PcmFileStructure& structure) {
    const std::uint64_t fileSize = file.size();
    SF_INFO info{};
    OpenFile opened;
    opened.stream = std::make_unique<SndfileStream>(std::move(file), structure.edits, info);
    opened.dataFormat = dataFormatOf(info, opened.stream->isBigEndian());
    opened.frameCount = static_cast<std::uint64_t>(std::max<sf_count_t>(info.frames, 0));
    const std::uint64_t frameSize = opened.dataFormat.mBytesPerFrame;
    if (info.samplerate < 1 || frameSize == 0) {
        throw StatusFailure(kAudioFileInvalidFileError);
    }
    // A header can claim more audio than the file holds, and libsndfile counts the padding of W64
    // as audio.
    opened.frameCount =
        std::min(opened.frameCount, structure.audioSize.value_or(fileSize) / frameSize);
    return opened;
}

PcmFileReader::PcmFileReader(FileHandle file, const PcmFileStructure& structure)
    : PcmFileReader(open(std::move(file), structure), structure) {}

PcmFileReader::PcmFileReader(OpenFile openFile, const PcmFileStructure& structure)
    : AudioFileReader(structure.fileType, openFile.dataFormat),
      structure_(structure),
      stream_(std::move(openFile.stream)),
      frameCount_(openFile.frameCount) {}

std::span<const std::byte> PcmFileReader::magicCookie() {
    if (!cookie_) {
        std::vector<std::byte> cookie(structure_.cookieSize);
        cookie.resize(
            stream_->file().readAt(structure_.cookieOffset, cookie.data(), cookie.size()));
        cookie_ = std::move(cookie);
    }
    return *cookie_;
}

PacketRun PcmFileReader::readPackets(std::uint64_t firstPacket, PacketRun room,
                                     AudioStreamPacketDescription* descriptions, void* buffer) {
    if (firstPacket >= frameCount_) {
        return {};
    }
    const auto wanted = static_cast<std::uint32_t>(
        std::min({std::uint64_t{room.packetCount}, std::uint64_t{room.byteCount} / frameSize(),
                  frameCount_ - firstPacket}));
    if (firstPacket != position_) {
        stream_->seek(firstPacket);
        position_ = firstPacket;
    }
    const std::size_t byteCount = stream_->readRaw(buffer, std::size_t{wanted} * frameSize());
    stream_->throwFileError();

    const auto packetCount = static_cast<std::uint32_t>(byteCount / frameSize());
    position_ += packetCount;
    if (descriptions != nullptr) {
        for (std::uint32_t i = 0; i < packetCount; ++i) {
            descriptions[i] = {std::int64_t{i} * frameSize(), 0, frameSize()};
        }
    }
    return {packetCount * frameSize(), packetCount};
}

}  // namespace zav::detail
