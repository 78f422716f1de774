#include "ZAVAudioStreaming/files/PcmFileWriter.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/Silence.hpp"

namespace zav::detail {
namespace {

/// Headers and padding of the types with 32-bit sizes are far smaller than this.
constexpr std::uint64_t kHeaderAllowance = 4096;
constexpr std::uint64_t kMost32BitBytes =
    std::numeric_limits<std::uint32_t>::max() - kHeaderAllowance;
constexpr std::uint64_t kMost64BitBytes = std::uint64_t{1} << 62U;
constexpr std::uint64_t kUnknownPosition = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kSilenceStepInBytes = 65536;

SF_INFO sndfileInfo(int sndfileFormat, const AudioStreamBasicDescription& dataFormat) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(dataFormat.mSampleRate);
    info.channels = static_cast<int>(dataFormat.mChannelsPerFrame);
    info.format = sndfileFormat;
    return info;
}

constexpr std::size_t kIdSize = 4;

/// Chunks of a header: an id of four bytes, a big-endian size, the content, padding.
struct ChunkLayout {
    std::size_t firstChunk;  ///< offset in the header
    std::size_t sizeSize;    ///< bytes of the size field
    std::size_t alignment;   ///< chunks start at multiples of this offset
};

constexpr ChunkLayout kAiffChunks{12, 4, 2};
constexpr ChunkLayout kCafChunks{8, 8, 1};
constexpr std::size_t kCafChunkHeaderSize = kIdSize + kCafChunks.sizeSize;

struct ChunkPlace {
    std::size_t offset;  ///< of the id in the header
    std::uint64_t size;  ///< of the content, which can end beyond the header
};

std::optional<ChunkPlace> findChunk(std::span<const std::byte> header, const ChunkLayout& layout,
                                    std::string_view wantedId) {
    const std::size_t chunkHeaderSize = kIdSize + layout.sizeSize;
    std::size_t offset = layout.firstChunk;
    while (offset + chunkHeaderSize <= header.size()) {
        const std::string_view id(reinterpret_cast<const char*>(&header[offset]), kIdSize);
        const std::uint64_t size = bigEndianAt(header.subspan(offset + kIdSize, layout.sizeSize));
        if (id == wantedId) {
            return ChunkPlace{offset, size};
        }
        if (size > header.size()) {
            break;
        }
        offset += chunkHeaderSize + size + size % layout.alignment;
    }
    return std::nullopt;
}

/// Sets the number of frames in an AIFF or AIFC header, and the matching size of the audio chunk.
/// If the audio has an odd size, libsndfile counts the padding byte as a frame.
///
///     'COMM' size32 channels16 frames32 ....   'SSND' size32 offset32 blocksize32 audio
void setAiffFrameCount(std::span<std::byte> header, std::uint32_t frameCount,
                       std::uint32_t frameSize) {
    constexpr std::size_t kFramesInFormat = 10;     // from the id on
    constexpr std::uint32_t kBytesBeforeAudio = 8;  // the size includes offset and block size
    const auto format = findChunk(header, kAiffChunks, "COMM");
    if (format && format->offset + kFramesInFormat + 4 <= header.size()) {
        putBigEndian(header.subspan(format->offset + kFramesInFormat, 4), frameCount);
    }
    if (const auto audio = findChunk(header, kAiffChunks, "SSND")) {
        putBigEndian(header.subspan(audio->offset + kIdSize, kAiffChunks.sizeSize),
                     kBytesBeforeAudio + frameCount * frameSize);
    }
}

void putCafChunkHeader(std::span<std::byte> bytes, std::string_view id, std::uint64_t size) {
    std::memcpy(bytes.data(), id.data(), kIdSize);
    putBigEndian(bytes.subspan(kIdSize, kCafChunks.sizeSize), size);
}

/// The magic cookie as a chunk of its own.
std::vector<std::byte> cafCookieChunk(std::span<const std::byte> cookie) {
    std::vector<std::byte> chunk(kCafChunkHeaderSize + cookie.size());
    putCafChunkHeader(chunk, "kuki", cookie.size());
    std::copy(cookie.begin(), cookie.end(), chunk.begin() + kCafChunkHeaderSize);
    return chunk;
}

/// Finds the filler that libsndfile leaves in a CAF header. The filler ends where the audio starts,
/// at byte 4096.
std::optional<ChunkPlace> findCafFiller(std::span<const std::byte> header) {
    const auto filler = findChunk(header, kCafChunks, "free");
    const bool isWhole =
        filler && filler->size <= header.size() - filler->offset - kCafChunkHeaderSize;
    return isWhole ? filler : std::nullopt;
}

/// Bytes of the longest cookie that fits into the filler of this header; 0 without filler.
std::size_t cafCookieCapacity(std::span<const std::byte> header) {
    const auto filler = findCafFiller(header);
    return filler && filler->size > kCafChunkHeaderSize ? filler->size - kCafChunkHeaderSize : 0;
}

/// Splits the filler of a CAF header to make room for the cookie. We do not pass the cookie to
/// libsndfile as a chunk: it pads each chunk to a multiple of four bytes, which would change the
/// cookie.
///
///     'free' size64 ....................   becomes   'kuki' size64 cookie 'free' size64 ....
void insertCafCookie(std::span<std::byte> header, std::span<const std::byte> cookie) {
    const auto filler = findCafFiller(header);
    if (!filler || filler->size < cookie.size() + kCafChunkHeaderSize) {
        return;
    }
    const auto chunk = cafCookieChunk(cookie);
    const auto place = header.subspan(filler->offset);
    std::copy(chunk.begin(), chunk.end(), place.begin());
    putCafChunkHeader(place.subspan(chunk.size()), "free", filler->size - chunk.size());
}

}  // namespace

PcmFileWriter::PcmFileWriter(FileHandle file, const PcmFileType& type, int sndfileFormat,
                             const AudioStreamBasicDescription& dataFormat)
    : AudioFileWriter(type.fileType, dataFormat),
      info_(sndfileInfo(sndfileFormat, dataFormat)),
      stream_(
          std::move(file), [this](std::span<std::byte> header) { correct(header); }, info_),
      mostFrames_((type.has64BitSizes ? kMost64BitBytes : kMost32BitBytes) / frameSize()) {
    stream_.updateHeader();
    stream_.throwFileError();
    if (type.hasMagicCookie) {
        std::vector<std::byte> header(stream_.file().size());
        header.resize(stream_.file().readAt(0, header.data(), header.size()));
        cookieCapacity_ = cafCookieCapacity(header);
    }
}

std::uint32_t PcmFileWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
                                          const AudioStreamPacketDescription* /*descriptions*/,
                                          const void* buffer) {
    if (run.byteCount % frameSize() != 0) {
        throw StatusFailure(kAudioFileParameterError);
    }
    const std::uint32_t frameCount = run.byteCount / frameSize();
    if (frameCount > mostFrames_ || firstPacket > mostFrames_ - frameCount) {
        throw StatusFailure(kAudioFileDoesNotAllow64BitDataSizeError);
    }
    if (firstPacket > frameCount_) {
        fillWithSilence(firstPacket);
    }
    moveTo(firstPacket);
    writeFrames(buffer, frameCount);

    const auto framesInOneSecond = static_cast<std::uint64_t>(info_.samplerate);
    if (frameCount_ - framesInHeader_ >= framesInOneSecond) {
        stream_.updateHeader();
        stream_.throwFileError();
        framesInHeader_ = frameCount_;
    }
    return frameCount;
}

void PcmFileWriter::correct(std::span<std::byte> header) const {
    if (!cookie_.empty() && cookie_.size() <= cookieCapacity_) {
        insertCafCookie(header, cookie_);
    } else if (fileType() == kAudioFileAIFFType || fileType() == kAudioFileAIFCType) {
        setAiffFrameCount(header, static_cast<std::uint32_t>(frameCount_), frameSize());
    }
}

void PcmFileWriter::moveTo(std::uint64_t frame) {
    if (frame != position_) {
        stream_.seek(frame);
        position_ = frame;
    }
}

void PcmFileWriter::fillWithSilence(std::uint64_t endFrame) {
    const std::byte silence = silenceByteOf(dataFormat());
    const std::uint64_t stepFrames = std::max<std::uint64_t>(1, kSilenceStepInBytes / frameSize());
    const std::vector<std::byte> step(std::min(stepFrames, endFrame - frameCount_) * frameSize(),
                                      silence);
    moveTo(frameCount_);
    while (frameCount_ < endFrame) {
        writeFrames(step.data(), std::min(stepFrames, endFrame - frameCount_));
        if (silence == std::byte{0}) {
            // Skipped bytes read as zero and take no room on the disk. The first step is still
            // written, because libsndfile can leave bytes of an older header behind a newer header.
            break;
        }
    }
}

void PcmFileWriter::writeFrames(const void* buffer, std::uint64_t frameCount) {
    const std::size_t wanted = frameCount * frameSize();
    const std::size_t written = stream_.writeRaw(buffer, wanted);
    position_ += written / frameSize();
    frameCount_ = std::max(frameCount_, position_);
    if (written < wanted) {
        position_ = kUnknownPosition;  // the position can be inside a frame
        // Updating the header needs no room on the disk. After the update, the file is readable
        // even if the process dies.
        stream_.updateHeader();
        stream_.throwFileError();
        throw StatusFailure(kAudioFileUnspecifiedError);
    }
}

void PcmFileWriter::setMagicCookie(std::span<const std::byte> cookie) {
    if (!takesMagicCookie()) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }
    cookie_.assign(cookie.begin(), cookie.end());
    stream_.updateHeader();
    stream_.throwFileError();
}

void PcmFileWriter::finish() {
    // A cookie that is too long for the header follows the audio.
    const bool fitsHeader = cookie_.size() <= cookieCapacity_;
    stream_.close(fitsHeader ? std::vector<std::byte>() : cafCookieChunk(cookie_));
}

}  // namespace zav::detail
