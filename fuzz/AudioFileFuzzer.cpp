// Opens any bytes as an audio file, reads every property and all packets. The result must be a
// status or audio, never a crash or a hang. The memory in use must stay in proportion to the file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "fuzz/MemoryFile.hpp"

namespace {

using zav::fuzz::require;

void readThrough(zav::AudioFileID file, std::size_t fileSize) {
    for (const auto property :
         {zav::kAudioFilePropertyDataFormat, zav::kAudioFilePropertyFileFormat,
          zav::kAudioFilePropertyPacketSizeUpperBound, zav::kAudioFilePropertyMaximumPacketSize,
          zav::kAudioFilePropertyAudioDataPacketCount, zav::kAudioFilePropertyAudioDataByteCount,
          zav::kAudioFilePropertyEstimatedDuration, zav::kAudioFilePropertyMagicCookieData}) {
        std::uint32_t size = 0;
        if (zav::AudioFileGetPropertyInfo(file, property, &size, nullptr) == zav::noErr) {
            require(size <= std::max<std::size_t>(fileSize, 64));
            std::vector<std::byte> value(size);
            static_cast<void>(zav::AudioFileGetProperty(file, property, &size, value.data()));
        }
    }
    std::vector<std::byte> buffer(4096);
    std::int64_t next = 0;
    for (;;) {
        auto byteCount = static_cast<std::uint32_t>(buffer.size());
        std::uint32_t packetCount = 64;
        if (zav::AudioFileReadPacketData(file, false, &byteCount, nullptr, next, &packetCount,
                                         buffer.data()) != zav::noErr ||
            packetCount == 0) {
            return;
        }
        require(byteCount <= buffer.size());
        next += packetCount;
        require(static_cast<std::uint64_t>(next) <= fileSize);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zav::AudioFileID file = nullptr;
    if (zav::AudioFileOpenURL(zav::fuzz::memoryFile(data, size), zav::kAudioFileReadPermission, 0,
                              &file) == zav::noErr) {
        readThrough(file, size);
        zav::AudioFileClose(file);
    }
    return 0;
}
