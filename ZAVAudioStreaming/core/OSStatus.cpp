#include "ZAVAudioStreaming/core/OSStatus.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zav {
namespace {

std::array<unsigned char, 4> bytesOf(std::uint32_t code) {
    return {static_cast<unsigned char>(code >> 24U), static_cast<unsigned char>(code >> 16U),
            static_cast<unsigned char>(code >> 8U), static_cast<unsigned char>(code)};
}

// Do not use std::isprint: the application's locale must not change the text.
bool isPrintable(unsigned char byte) {
    return byte >= 0x20 && byte < 0x7F;
}

}  // namespace

std::string fourCharText(std::uint32_t code) {
    std::string text;
    for (const unsigned char byte : bytesOf(code)) {
        if (isPrintable(byte)) {
            text += static_cast<char>(byte);
        } else {
            std::array<char, 5> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\x%02X", byte);
            text += escaped.data();
        }
    }
    return text;
}

std::string statusText(OSStatus status) {
    const auto code = static_cast<std::uint32_t>(status);
    const auto bytes = bytesOf(code);
    if (std::all_of(bytes.begin(), bytes.end(), isPrintable)) {
        return "'" + fourCharText(code) + "'";
    }
    return std::to_string(status);
}

}  // namespace zav
