#include "ZAVAudioStreaming/files/CafCookie.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
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
        const std::uint64_t size = bigEndianAt(header.subspan(offset + 4, 8));
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

void putChunkHeader(std::span<std::byte> at, std::string_view id, std::uint64_t size) {
    std::transform(id.begin(), id.end(), at.begin(),
                   [](char letter) { return static_cast<std::byte>(letter); });
    putBigEndian(at.subspan(id.size(), 8), size);
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
    const auto place = header.subspan(chunk->offset);
    const auto cookieChunk = cafCookieChunk(cookie);
    std::copy(cookieChunk.begin(), cookieChunk.end(), place.begin());
    putChunkHeader(place.subspan(cookieChunk.size()), "free", chunk->size - cookieChunk.size());
}

std::vector<std::byte> cafCookieChunk(std::span<const std::byte> cookie) {
    std::vector<std::byte> chunk(kChunkHeaderSize + cookie.size());
    putChunkHeader(chunk, "kuki", cookie.size());
    std::copy(cookie.begin(), cookie.end(), chunk.begin() + kChunkHeaderSize);
    return chunk;
}

}  // namespace zav::detail
