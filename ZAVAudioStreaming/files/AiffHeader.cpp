#include "ZAVAudioStreaming/files/AiffHeader.hpp"

#include <string_view>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {

void setAiffFrameCount(std::span<std::byte> header, std::uint32_t frameCount,
                       std::uint32_t frameSize) {
    constexpr std::size_t kFileHeaderSize = 12;  // 'FORM', size, form
    constexpr std::size_t kChunkHeaderSize = 8;  // id, size
    constexpr std::size_t kFramesInFormat = 10;  // after the chunk's header and the channels
    constexpr std::uint32_t kBeforeAudio = 8;    // offset and block size count as content
    std::size_t offset = kFileHeaderSize;
    while (offset + kChunkHeaderSize <= header.size()) {
        const std::string_view id(reinterpret_cast<const char*>(&header[offset]), 4);
        const std::uint64_t size = bigEndianAt(header.subspan(offset + 4, 4));
        if (id == "SSND") {
            putBigEndian(header.subspan(offset + 4, 4), kBeforeAudio + frameCount * frameSize);
            return;
        }
        if (id == "COMM" && offset + kFramesInFormat + 4 <= header.size()) {
            putBigEndian(header.subspan(offset + kFramesInFormat, 4), frameCount);
        }
        offset += kChunkHeaderSize + size + size % 2;
    }
}

}  // namespace zav::detail
