#include "ZAVAudioStreaming/files/SbcFrameHeader.hpp"

#include <sbc/sbc.h>

#include <array>
#include <new>

#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"

namespace zav::detail {
namespace {

constexpr std::byte kSyncByte{0x9C};

/// A state that only ever answers questions about a header.
class HeaderState {
 public:
    HeaderState() {
        if (sbc_init(&state_, 0) != 0) {
            throw std::bad_alloc();
        }
    }
    ~HeaderState() { sbc_finish(&state_); }

    HeaderState(const HeaderState&) = delete;
    HeaderState& operator=(const HeaderState&) = delete;

    sbc_t* get() { return &state_; }

 private:
    sbc_t state_{};
};

}  // namespace

std::optional<std::uint32_t> sbcFrameLength(const std::byte* header) {
    if (header[0] != kSyncByte) {
        return std::nullopt;
    }
    thread_local HeaderState state;
    const auto parameters = std::to_integer<std::uint32_t>(header[1]);
    state.get()->frequency = static_cast<std::uint8_t>(parameters >> 6U & 3U);
    state.get()->blocks = static_cast<std::uint8_t>(parameters >> 4U & 3U);
    state.get()->mode = static_cast<std::uint8_t>(parameters >> 2U & 3U);
    state.get()->allocation = static_cast<std::uint8_t>(parameters >> 1U & 1U);
    state.get()->subbands = static_cast<std::uint8_t>(parameters & 1U);
    state.get()->bitpool = std::to_integer<std::uint8_t>(header[2]);
    return static_cast<std::uint32_t>(sbc_get_frame_length(state.get()));
}

std::optional<AudioStreamBasicDescription> firstSbcFrame(const FileHandle& file) {
    std::array<std::byte, kLongestSbcFrame> bytes{};
    const std::size_t size = file.readAt(0, bytes.data(), bytes.size());
    if (size < kSbcHeaderSize || bytes[0] != kSyncByte) {
        return std::nullopt;
    }
    HeaderState state;
    sbc_t& frame = *state.get();
    if (sbc_parse(&frame, bytes.data(), size) <= 0) {
        return std::nullopt;
    }

    constexpr std::uint32_t kBytesPerSample = 2;
    AudioStreamBasicDescription format;
    format.mSampleRate = kSbcRatesInHz.at(frame.frequency);
    format.mFormatID = kAudioFormatSbc;
    format.mFormatFlags = SbcFormatFlags{false, frame.blocks, frame.allocation == SBC_AM_SNR,
                                         frame.subbands == SBC_SB_8, frame.bitpool}
                              .packed();
    format.mChannelsPerFrame = frame.mode == SBC_MODE_MONO ? 1 : 2;
    format.mBytesPerPacket = static_cast<std::uint32_t>(sbc_get_frame_length(&frame));
    format.mFramesPerPacket = static_cast<std::uint32_t>(sbc_get_codesize(&frame)) /
                              kBytesPerSample / format.mChannelsPerFrame;
    return format;
}

}  // namespace zav::detail
