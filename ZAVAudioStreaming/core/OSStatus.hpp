#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Status of a platform call. 0 is success. Every other value is one of the platform's error codes:
/// a small negative number (-43: no such file) or four packed characters ('fmt?').
using OSStatus = std::int32_t;

inline constexpr OSStatus noErr = 0;

/// Packs four characters. The first one is in the highest byte: fourCharCode("lpcm") is 0x6C70636D.
constexpr std::uint32_t fourCharCode(const char (&text)[5]) {
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        code = code << 8U | static_cast<unsigned char>(text[i]);
    }
    return code;
}

/// The code as text: four characters in quotes ('fmt?') if all four bytes are printable, otherwise
/// the signed decimal number.
ZAV_EXPORT std::string statusText(OSStatus status);

/// The four characters of a format or file type code. A byte that is not printable becomes "\xNN".
ZAV_EXPORT std::string fourCharText(std::uint32_t code);

}  // namespace zav
