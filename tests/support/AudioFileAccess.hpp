#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"

/// Short forms of the file service's functions, for its tests.
namespace zav::test {

struct CloseAudioFile {
    void operator()(AudioFileID file) const { AudioFileClose(file); }
};
using OpenFile = std::unique_ptr<std::remove_pointer_t<AudioFileID>, CloseAudioFile>;

/// Opens a file. The status must be `expected`; the result is null unless that is 0.
inline OpenFile open(const std::filesystem::path& path, OSStatus expected = noErr) {
    AudioFileID id = nullptr;
    const OSStatus status = AudioFileOpenURL(path, kAudioFileReadPermission, 0, &id);
    EXPECT_EQ(statusText(status), statusText(expected)) << path;
    EXPECT_EQ(id != nullptr, status == noErr);
    return OpenFile(id);
}

/// Creates a file, with the same rule for `expected`.
inline OpenFile create(const std::filesystem::path& path, AudioFileTypeID type,
                       const AudioStreamBasicDescription& format, OSStatus expected = noErr) {
    AudioFileID id = nullptr;
    const OSStatus status =
        AudioFileCreateWithURL(path, type, &format, kAudioFileFlags_EraseFile, &id);
    EXPECT_EQ(statusText(status), statusText(expected)) << path;
    EXPECT_EQ(id != nullptr, status == noErr);
    return OpenFile(id);
}

/// Runs `write` in a process of its own and kills the process before the file that it returns is
/// closed.
template <class Write>
void writeAndBeKilled(Write write) {
    const pid_t child = ::fork();
    if (child == 0) {
        const OpenFile file = write();
        if (!testing::Test::HasFailure()) {
            ::kill(::getpid(), SIGKILL);
        }
        ::_exit(1);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

/// Closes a file and returns the status.
inline OSStatus close(OpenFile& file) {
    return AudioFileClose(file.release());
}

template <class Value>
Value property(const OpenFile& file, AudioFilePropertyID id) {
    Value value{};
    std::uint32_t size = sizeof(value);
    EXPECT_EQ(AudioFileGetProperty(file.get(), id, &size, &value), noErr) << fourCharText(id);
    return value;
}

inline AudioStreamBasicDescription formatOf(const OpenFile& file) {
    return property<AudioStreamBasicDescription>(file, kAudioFilePropertyDataFormat);
}

inline AudioFileTypeID typeOf(const OpenFile& file) {
    return property<AudioFileTypeID>(file, kAudioFilePropertyFileFormat);
}

inline double durationOf(const OpenFile& file) {
    return property<double>(file, kAudioFilePropertyEstimatedDuration);
}

/// Empty if the file has no cookie.
inline std::vector<std::byte> cookieOf(const OpenFile& file) {
    std::uint32_t size = 0;
    if (AudioFileGetPropertyInfo(file.get(), kAudioFilePropertyMagicCookieData, &size, nullptr) !=
        noErr) {
        return {};
    }
    std::vector<std::byte> cookie(size);
    EXPECT_EQ(
        AudioFileGetProperty(file.get(), kAudioFilePropertyMagicCookieData, &size, cookie.data()),
        noErr);
    return cookie;
}

inline OSStatus setCookie(const OpenFile& file, std::span<const std::byte> cookie) {
    return AudioFileSetProperty(file.get(), kAudioFilePropertyMagicCookieData,
                                static_cast<std::uint32_t>(cookie.size()), cookie.data());
}

inline std::uint64_t packetCount(const OpenFile& file) {
    return property<std::uint64_t>(file, kAudioFilePropertyAudioDataPacketCount);
}

inline OSStatus write(const OpenFile& file, std::int64_t index, std::span<const std::byte> bytes,
                      std::uint32_t packets = 0) {
    return AudioFileWritePackets(file.get(), false, static_cast<std::uint32_t>(bytes.size()),
                                 nullptr, index, &packets, bytes.data());
}

/// Reads up to `packets` packets. Without `status`, the read must succeed.
inline std::vector<std::byte> read(const OpenFile& file, std::int64_t index, std::uint32_t packets,
                                   OSStatus* status = nullptr) {
    const auto bound = property<std::uint32_t>(file, kAudioFilePropertyPacketSizeUpperBound);
    auto byteCount = static_cast<std::uint32_t>(std::uint64_t{packets} * bound);
    std::vector<std::byte> bytes(byteCount);
    const OSStatus result = AudioFileReadPacketData(file.get(), false, &byteCount, nullptr, index,
                                                    &packets, bytes.data());
    if (status != nullptr) {
        *status = result;
    } else {
        EXPECT_EQ(result, noErr);
    }
    bytes.resize(result == noErr ? byteCount : 0);
    return bytes;
}

inline std::vector<std::byte> readAll(const OpenFile& file) {
    return read(file, 0, static_cast<std::uint32_t>(packetCount(file)));
}

}  // namespace zav::test
