#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::detail {

/// Sample rates of SBC in Hz, in the order of their codes.
inline constexpr std::array<std::uint32_t, 4> kSbcRatesInHz = {16000, 32000, 44100, 48000};

/// Parameters of one SBC frame, read from its first bytes (A2DP, appendix B):
///
///     byte 0   0x9C, the sync byte
///     byte 1   sample rate (2 bits), blocks (2), channel mode (2), allocation (1), subbands (1)
///     byte 2   bitpool
///     byte 3   CRC-8 over bytes 1 and 2, the join bits and the scale factors
///
/// This is a plain value. It creates no codec state and allocates nothing.
struct SBCHeader {
    /// Number of bytes that hold all parameters.
    static constexpr std::size_t kByteCount = 3;

    /// The values are the codes in byte 1.
    enum class ChannelMode : std::uint8_t { mono, dual, stereo, jointStereo };
    enum class Allocation : std::uint8_t { loudness, snr };

    std::uint32_t sampleRate = 16000;  ///< Hz
    std::uint32_t blocks = 16;         ///< 4, 8, 12 or 16
    ChannelMode mode = ChannelMode::mono;
    Allocation allocation = Allocation::loudness;
    std::uint32_t subbands = 8;  ///< 4 or 8
    std::uint8_t bitpool = 32;   ///< bits for the samples of one block; not checked

    /// Reads the parameters. Returns nothing if there are fewer than `kByteCount` bytes or the
    /// first byte is not the sync byte. Does not check the checksum.
    static std::optional<SBCHeader> fromBytes(std::span<const std::byte> bytes);

    constexpr std::uint32_t channels() const { return mode == ChannelMode::mono ? 1 : 2; }

    /// Number of samples of each channel in the frame.
    constexpr std::uint32_t samplesPerChannel() const { return blocks * subbands; }

    /// Size of the whole frame in bytes (A2DP, appendix B, section 12.9): four bytes of header,
    /// four bits for each scale factor, the join bits of joint stereo and the samples. The sum is
    /// padded to whole bytes. In mono and dual channel, each channel has its own bitpool. In the
    /// stereo modes, both channels share one bitpool.
    constexpr std::uint32_t frameLength() const {
        const bool isPerChannel = mode == ChannelMode::mono || mode == ChannelMode::dual;
        const std::uint32_t joinBits = mode == ChannelMode::jointStereo ? subbands : 0;
        const std::uint32_t sampleBits = blocks * bitpool * (isPerChannel ? channels() : 1);
        return 4 + subbands * channels() / 2 + (joinBits + sampleBits + 7) / 8;
    }

    /// Format of a stream of these frames. The PCM side is little-endian.
    AudioStreamBasicDescription dataFormat() const;

    friend bool operator==(const SBCHeader&, const SBCHeader&) = default;
};

/// Returns true if the frame at the start of `bytes` has the right checksum and a bitpool that
/// libsbc decodes. libsbc checks both, because the checksum also covers the scale factors. `bytes`
/// must contain the whole frame: libsbc reads beyond the end of a frame that is cut short. Throws
/// std::bad_alloc.
bool isValidSbcFrame(std::span<const std::byte> bytes);

/// Length in bytes of the longest frame that a header can announce.
inline constexpr std::size_t kLongestSbcFrame =
    SBCHeader{.mode = SBCHeader::ChannelMode::dual, .bitpool = 255}.frameLength();

}  // namespace zav::detail
