#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// The magic cookie in a CAF header. libsndfile can write chunks of ours only padded to four bytes,
/// which would change the cookie, but its header ends in a 'free' chunk up to the audio at byte
/// 4096, and that can be split:
///
///     'free' size64 ....................   becomes   'kuki' size64 cookie 'free' size64 ....
///
/// A cookie that is too long for that stands as a chunk after the audio.
namespace zav::detail {

/// The longest cookie that fits the 'free' chunk of this header, 0 when there is no such chunk.
std::size_t cafCookieCapacity(std::span<const std::byte> header);

/// Puts the cookie, no longer than the capacity, into a header without one.
void insertCafCookie(std::span<std::byte> header, std::span<const std::byte> cookie);

/// The cookie as a chunk of its own.
std::vector<std::byte> cafCookieChunk(std::span<const std::byte> cookie);

}  // namespace zav::detail
