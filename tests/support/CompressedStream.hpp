#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/AudioFileAccess.hpp"

namespace zav::test {

/// All packets of a file.
struct CompressedStream {
    AudioStreamBasicDescription format;
    std::vector<std::byte> cookie;
    std::vector<std::byte> bytes;  ///< packets one after the other
    std::vector<AudioStreamPacketDescription> places;

    std::vector<std::byte> packet(std::size_t index) const {
        const auto begin = bytes.begin() + places.at(index).mStartOffset;
        return {begin, begin + places.at(index).mDataByteSize};
    }

    friend bool operator==(const CompressedStream&, const CompressedStream&) = default;
};

inline CompressedStream readStream(const std::filesystem::path& path) {
    const OpenFile file = open(path);
    auto count = static_cast<std::uint32_t>(packetCount(file));
    auto size = static_cast<std::uint32_t>(
        property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount));
    CompressedStream stream{formatOf(file), cookieOf(file), std::vector<std::byte>(size),
                            std::vector<AudioStreamPacketDescription>(count)};
    EXPECT_EQ(AudioFileReadPacketData(file.get(), false, &size, stream.places.data(), 0, &count,
                                      stream.bytes.data()),
              noErr);
    EXPECT_EQ(count, stream.places.size());
    EXPECT_EQ(size, stream.bytes.size());
    return stream;
}

/// Writes one packet with a description. It has the same index in the stream and in the file.
inline OSStatus writePacket(const OpenFile& file, const CompressedStream& stream,
                            std::size_t index) {
    const auto packet = stream.packet(index);
    const auto size = static_cast<std::uint32_t>(packet.size());
    const AudioStreamPacketDescription place{0, stream.places[index].mVariableFramesInPacket, size};
    std::uint32_t count = 1;
    return AudioFileWritePackets(file.get(), false, size, &place, static_cast<std::int64_t>(index),
                                 &count, packet.data());
}

/// Writes the cookie, if there is one, then all packets. Stops at the first error and returns it.
inline OSStatus writeStream(const OpenFile& file, const CompressedStream& stream) {
    OSStatus status = stream.cookie.empty() ? noErr : setCookie(file, stream.cookie);
    for (std::size_t i = 0; i < stream.places.size() && status == noErr; ++i) {
        status = writePacket(file, stream, i);
    }
    return status;
}

}  // namespace zav::test
