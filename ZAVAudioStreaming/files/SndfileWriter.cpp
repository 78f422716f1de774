#include "ZAVAudioStreaming/files/SndfileWriter.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/files/AiffHeader.hpp"
#include "ZAVAudioStreaming/files/CafCookie.hpp"
#include "ZAVAudioStreaming/support/Silence.hpp"

namespace zav::detail {
namespace {

/// Headers and padding of the types with 32-bit sizes stay far below this.
constexpr std::uint64_t kHeaderAllowance = 4096;
constexpr std::uint64_t kMost32BitBytes =
    std::numeric_limits<std::uint32_t>::max() - kHeaderAllowance;
constexpr std::uint64_t kMost64BitBytes = std::uint64_t{1} << 62U;
constexpr std::uint64_t kNowhere = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kSilenceStepInBytes = 65536;

SF_INFO sndfileInfo(int sndfileFormat, const AudioStreamBasicDescription& dataFormat) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(dataFormat.mSampleRate);
    info.channels = static_cast<int>(dataFormat.mChannelsPerFrame);
    info.format = sndfileFormat;
    return info;
}

}  // namespace

SndfileWriter::SndfileWriter(FileHandle file, const PcmFileType& type, int sndfileFormat,
                             const AudioStreamBasicDescription& dataFormat)
    : AudioFileWriter(type.fileType, dataFormat),
      info_(sndfileInfo(sndfileFormat, dataFormat)),
      stream_(
          std::move(file), [this](std::span<std::byte> header) { mend(header); }, info_),
      mostFrames_((type.has64BitSizes ? kMost64BitBytes : kMost32BitBytes) / frameSize()) {
    stream_.updateHeader();
    stream_.throwFileError();
    if (type.hasMagicCookie) {
        std::vector<std::byte> header(stream_.file().size());
        header.resize(stream_.file().readAt(0, header.data(), header.size()));
        cookieCapacity_ = cafCookieCapacity(header);
    }
}

std::uint32_t SndfileWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
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

void SndfileWriter::mend(std::span<std::byte> header) const {
    if (!cookie_.empty() && cookie_.size() <= cookieCapacity_) {
        insertCafCookie(header, cookie_);
    } else if (fileType() == kAudioFileAIFFType || fileType() == kAudioFileAIFCType) {
        setAiffFrameCount(header, static_cast<std::uint32_t>(frameCount_), frameSize());
    }
}

void SndfileWriter::moveTo(std::uint64_t frame) {
    if (frame != position_) {
        stream_.seek(frame);
        position_ = frame;
    }
}

void SndfileWriter::fillWithSilence(std::uint64_t endFrame) {
    const std::byte silence = silenceByteOf(dataFormat());
    const std::uint64_t stepFrames = std::max<std::uint64_t>(1, kSilenceStepInBytes / frameSize());
    const std::vector<std::byte> step(std::min(stepFrames, endFrame - frameCount_) * frameSize(),
                                      silence);
    moveTo(frameCount_);
    while (frameCount_ < endFrame) {
        writeFrames(step.data(), std::min(stepFrames, endFrame - frameCount_));
        if (silence == std::byte{0}) {
            // Skipped bytes read as zero too, and take no room on the disk. Only the first step has
            // to be written: libsndfile can leave bytes of an older header behind the newer one.
            break;
        }
    }
}

void SndfileWriter::writeFrames(const void* buffer, std::uint64_t frameCount) {
    const std::size_t wanted = frameCount * frameSize();
    const std::size_t written = stream_.writeRaw(buffer, wanted);
    position_ += written / frameSize();
    frameCount_ = std::max(frameCount_, position_);
    if (written < wanted) {
        position_ = kNowhere;  // it may be within a frame
        // What is there is readable then, whatever becomes of the writer; it needs no room.
        stream_.updateHeader();
        stream_.throwFileError();
        throw StatusFailure(kAudioFileUnspecifiedError);
    }
}

void SndfileWriter::setMagicCookie(std::span<const std::byte> cookie) {
    if (!takesMagicCookie()) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }
    cookie_.assign(cookie.begin(), cookie.end());
    stream_.updateHeader();
    stream_.throwFileError();
}

void SndfileWriter::finish() {
    const bool fitsHeader = cookie_.size() <= cookieCapacity_;
    stream_.close(fitsHeader ? std::vector<std::byte>() : cafCookieChunk(cookie_));
}

}  // namespace zav::detail
