#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

/// The drivers behind open audio files: one reader and one writer class for each family of file
/// types. `AudioFile.cpp` checks the arguments before it calls a driver. It turns a driver's
/// exceptions (`StatusFailure`, `std::system_error` of the file, `std::bad_alloc`) into a status.
///
/// Threads: one at a time for one driver.
namespace zav::detail {

/// The properties of a file that is being read or written.
class AudioFileDriver {
 public:
    AudioFileDriver(AudioFileTypeID fileType, const AudioStreamBasicDescription& dataFormat)
        : fileType_(fileType), dataFormat_(dataFormat) {}
    virtual ~AudioFileDriver() = default;

    AudioFileDriver(const AudioFileDriver&) = delete;
    AudioFileDriver& operator=(const AudioFileDriver&) = delete;

    AudioFileTypeID fileType() const noexcept { return fileType_; }
    const AudioStreamBasicDescription& dataFormat() const noexcept { return dataFormat_; }

    /// The first call of one of these functions can read the whole file.
    virtual std::uint64_t packetCount() = 0;
    /// Bytes of audio, without headers.
    virtual std::uint64_t byteCount() = 0;
    /// Bytes of the largest packet.
    virtual std::uint32_t maximumPacketSize() = 0;
    virtual double durationInSeconds() {
        return static_cast<double>(packetCount()) * dataFormat_.mFramesPerPacket /
               dataFormat_.mSampleRate;
    }
    /// Empty if the file has no cookie.
    virtual std::span<const std::byte> magicCookie() { return {}; }

 private:
    AudioFileTypeID fileType_;
    AudioStreamBasicDescription dataFormat_;
};

/// The bytes and packets of one read or write.
struct PacketRun {
    std::uint32_t byteCount = 0;
    std::uint32_t packetCount = 0;
};

class AudioFileReader : public AudioFileDriver {
 public:
    using AudioFileDriver::AudioFileDriver;

    /// Reads whole packets into `buffer`, starting with `firstPacket`. Stops when `room` is used up
    /// or the file ends. Returns the bytes and packets read. `descriptions` is null or has room for
    /// `room.packetCount` records.
    virtual PacketRun readPackets(std::uint64_t firstPacket, PacketRun room,
                                  AudioStreamPacketDescription* descriptions, void* buffer) = 0;
};

class AudioFileWriter : public AudioFileDriver {
 public:
    using AudioFileDriver::AudioFileDriver;

    /// Writes packets, starting with `firstPacket`. Returns the number of packets written.
    /// `descriptions` is null or has `run.packetCount` records.
    virtual std::uint32_t writePackets(std::uint64_t firstPacket, PacketRun run,
                                       const AudioStreamPacketDescription* descriptions,
                                       const void* buffer) = 0;

    /// True if the file has a place for a cookie.
    virtual bool takesMagicCookie() const { return false; }
    /// Throws 'pty?' if the file has no place for a cookie or if the cookie comes too late.
    virtual void setMagicCookie(std::span<const std::byte> /*cookie*/) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }

    /// Completes the file and closes it. Without this call, the destructor leaves the file
    /// unfinished.
    virtual void finish() = 0;
};

}  // namespace zav::detail
