#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

/// What stands behind an open audio file: one reader and one writer class for each family of file
/// types. `AudioFile.cpp` checks arguments before it calls them and turns what they throw
/// (`StatusFailure`, `std::system_error` of the file, `std::bad_alloc`) into a status.
namespace zav::detail {

/// What can be asked of a file, whether it is being read or written.
class AudioFile {
 public:
    AudioFile(AudioFileTypeID fileType, const AudioStreamBasicDescription& dataFormat)
        : fileType_(fileType), dataFormat_(dataFormat) {}
    virtual ~AudioFile() = default;

    AudioFile(const AudioFile&) = delete;
    AudioFile& operator=(const AudioFile&) = delete;

    AudioFileTypeID fileType() const noexcept { return fileType_; }
    const AudioStreamBasicDescription& dataFormat() const noexcept { return dataFormat_; }

    virtual std::uint64_t packetCount() = 0;
    virtual std::uint64_t byteCount() = 0;
    virtual std::uint32_t maximumPacketSize() = 0;
    virtual double durationInSeconds() {
        return static_cast<double>(packetCount()) * dataFormat_.mFramesPerPacket /
               dataFormat_.mSampleRate;
    }
    /// Empty when there is none.
    virtual std::span<const std::byte> magicCookie() { return {}; }

 private:
    AudioFileTypeID fileType_;
    AudioStreamBasicDescription dataFormat_;
};

/// Bytes and packets of one read.
struct PacketRun {
    std::uint32_t byteCount = 0;
    std::uint32_t packetCount = 0;
};

class AudioFileReader : public AudioFile {
 public:
    using AudioFile::AudioFile;

    /// Reads packets from `firstPacket` (0 or more) on: as many as `room` allows and the file has.
    /// `descriptions` is null or has room for `room.packetCount` records.
    virtual PacketRun readPackets(std::uint64_t firstPacket, PacketRun room,
                                  AudioStreamPacketDescription* descriptions, void* buffer) = 0;
};

class AudioFileWriter : public AudioFile {
 public:
    using AudioFile::AudioFile;

    /// Writes packets from `firstPacket` (0 or more) on and returns their number.
    /// `descriptions` is null or has `run.packetCount` records.
    virtual std::uint32_t writePackets(std::uint64_t firstPacket, PacketRun run,
                                       const AudioStreamPacketDescription* descriptions,
                                       const void* buffer) = 0;

    virtual bool takesMagicCookie() const { return false; }
    virtual void setMagicCookie(std::span<const std::byte> /*cookie*/) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }

    /// Makes the file complete and closes it; the destructor alone abandons it as it is.
    virtual void finish() = 0;
};

}  // namespace zav::detail
