#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Start of both container headers: the magic text at offset 0, the sample rate at 32, and the
/// channels at 36. Fields are little-endian. Each field is read and written separately. Bytes
/// outside the fields are written as zero and ignored by readers.
struct ZAV_EXPORT ContainerFileHeader {
    /// Size of the magic text in bytes, including the zero bytes after it.
    static constexpr std::size_t kMagicByteCount = 16;

    std::uint32_t sampleRate = 0;  ///< Hz
    std::uint16_t channels = 0;

 protected:
    void putCommonFields(std::span<std::byte> header, std::string_view magicText) const;
    void takeCommonFields(std::span<const std::byte> header);
};

}  // namespace zav
