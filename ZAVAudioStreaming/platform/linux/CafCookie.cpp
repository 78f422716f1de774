#include "ZAVAudioStreaming/platform/linux/CafCookie.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

namespace zav {
namespace {

constexpr std::size_t kFileHeaderSize = 8;    // 'caff', version, flags
constexpr std::size_t kChunkHeaderSize = 12;  // id, 64-bit size, both big-endian

struct Chunk {
    std::size_t offset;
    std::uint64_t size;
};

std::optional<Chunk> findFreeChunk(std::span<const std::byte> header) {
    std::size_t offset = kFileHeaderSize;
    while (offset + kChunkHeaderSize <= header.size()) {
        std::uint64_t size = 0;
        for (std::size_t i = 4; i < kChunkHeaderSize; ++i) {
            size = size << 8U | std::to_integer<std::uint64_t>(header[offset + i]);
        }
        const std::string_view id(reinterpret_cast<const char*>(&header[offset]), 4);
        const std::size_t room = header.size() - offset - kChunkHeaderSize;
        if (size > room) {
            break;
        }
        if (id == "free") {
            return Chunk{offset, size};
        }
        offset += kChunkHeaderSize + size;
    }
    return std::nullopt;
}

void writeChunkHeader(std::byte* at, std::string_view id, std::uint64_t size) {
    std::transform(id.begin(), id.end(), at, [](char c) { return static_cast<std::byte>(c); });
    for (std::size_t i = kChunkHeaderSize; i-- > id.size(); size >>= 8U) {
        at[i] = static_cast<std::byte>(size);
    }
}

}  // namespace

std::size_t cafCookieCapacity(std::span<const std::byte> header) {
    const auto chunk = findFreeChunk(header);
    return chunk && chunk->size > kChunkHeaderSize ? chunk->size - kChunkHeaderSize : 0;
}

void insertCafCookie(std::span<std::byte> header, std::span<const std::byte> cookie) {
    const auto chunk = findFreeChunk(header);
    if (!chunk || chunk->size < cookie.size() + kChunkHeaderSize) {
        return;
    }
    std::byte* at = &header[chunk->offset];
    writeChunkHeader(at, "kuki", cookie.size());
    at = std::copy(cookie.begin(), cookie.end(), at + kChunkHeaderSize);
    writeChunkHeader(at, "free", chunk->size - cookie.size() - kChunkHeaderSize);
}

}  // namespace zav
