#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav {

using namespace detail;

namespace {

/// Memory reserved at first, in bytes. It is enough for a chunk of a few packets.
constexpr std::size_t kFirstRoom = 4096;
/// For a longer packet, memory is allocated only if the rest of the file is that long.
constexpr std::uint32_t kUsualPacketLength = 64 * 1024;

[[noreturn]] void stopForCutPacket(SourcePosition position = SourcePosition::current()) {
    fatalError(FatalCause::damagedFile, "Reading the packet length field from opus file failed",
               position);
}

}  // namespace

ZAVOpusFileSource::ZAVOpusFileSource(NodeKey, const std::filesystem::path& fileURL)
    : ContainerFileSource(open(fileURL)) {}

ContainerFileSource::OpenedFile ZAVOpusFileSource::open(const std::filesystem::path& fileURL) {
    FileHandle file = FileHandle::openForReading(fileURL);
    std::array<std::byte, OpusFileHeader::kByteCount> bytes;
    readHeader(file, bytes);
    if (!OpusFileHeader::hasMagic(bytes)) {
        throw AudioFileError::invalidFormat();
    }
    const auto header = OpusFileHeader::fromBytes(bytes);
    return {std::move(file), opusFormat(header.sampleRate, header.channels)};
}

void ZAVOpusFileSource::readPackets(std::int64_t count) {
    FileHandle& file = fileHandle();
    if (file.offset() == OpusFileHeader::kByteCount) {
        downstreams().onAudioStreamFlowStart();
    }
    checkedMultiply(count, std::int64_t{sizeof(AudioStreamPacketDescription)});
    const auto packetsWanted = checkedCast<std::uint64_t>(count);

    std::vector<std::byte> chunk;
    std::vector<AudioStreamPacketDescription> descriptions;
    // Do not reserve memory for all of `count`: the file may have far fewer packets.
    chunk.reserve(kFirstRoom);
    descriptions.reserve(kFirstRoom / sizeof(AudioStreamPacketDescription));

    bool hasEnded = false;
    while (descriptions.size() < packetsWanted) {
        std::array<std::byte, OpusRecordHeader::kByteCount> recordHeader;
        if (file.read(recordHeader.data(), recordHeader.size()) != recordHeader.size()) {
            hasEnded = true;
            break;
        }
        const std::uint32_t packetLength = OpusRecordHeader::fromBytes(recordHeader).packetLength;
        if (packetLength > kUsualPacketLength &&
            packetLength > file.size() - std::min(file.offset(), file.size())) {
            stopForCutPacket();
        }
        const std::size_t start = chunk.size();
        fatalWithoutMemory([&] {
            chunk.resize(start + packetLength);
            descriptions.push_back({static_cast<std::int64_t>(start), 0, packetLength});
        });
        if (file.read(chunk.data() + start, packetLength) != packetLength) {
            stopForCutPacket();
        }
    }
    if (hasEnded && descriptions.empty()) {
        throw AudioFileError::noMoreData();
    }
    downstreams().receiveAudio(chunk.data(), chunk.size(), descriptions.size(),
                               descriptions.data());
    if (hasEnded) {
        downstreams().onAudioStreamFlowEnd();
    }
}

}  // namespace zav
