#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// The two records that travel with audio, and the constants and functions that fill them.
///
/// Words used everywhere: a *sample* is one value of one channel. A *frame* is one sample of each
/// channel. A *packet* is the unit of a codec (for PCM, one frame). A *chunk* is the audio of one
/// `receiveAudio` call.
namespace zav {

/// Format of a stream. A plain value: nodes copy it and never share it. All fields are zero while a
/// node does not know its output format. The record has 40 bytes and the layout of the platform's
/// own record.
struct AudioStreamBasicDescription {
    double mSampleRate = 0;               ///< frames per second
    std::uint32_t mFormatID = 0;          ///< kAudioFormat... code
    std::uint32_t mFormatFlags = 0;       ///< meaning depends on mFormatID
    std::uint32_t mBytesPerPacket = 0;    ///< 0 when packets vary in size
    std::uint32_t mFramesPerPacket = 0;   ///< 0 when packets vary in duration
    std::uint32_t mBytesPerFrame = 0;     ///< 0 for compressed formats
    std::uint32_t mChannelsPerFrame = 0;  ///< channels
    std::uint32_t mBitsPerChannel = 0;    ///< bits per sample, 0 for compressed formats
    std::uint32_t mReserved = 0;          ///< always 0

    friend bool operator==(const AudioStreamBasicDescription&,
                           const AudioStreamBasicDescription&) = default;
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

/// Place of one packet inside a chunk, for packets that vary in size. If all packets have one size
/// (PCM, SBC), the chunk has no descriptions.
struct AudioStreamPacketDescription {
    std::int64_t mStartOffset = 0;              ///< bytes from the start of the chunk
    std::uint32_t mVariableFramesInPacket = 0;  ///< frames; 0 when constant for the format
    std::uint32_t mDataByteSize = 0;            ///< bytes in the packet

    friend bool operator==(const AudioStreamPacketDescription&,
                           const AudioStreamPacketDescription&) = default;
};
static_assert(sizeof(AudioStreamPacketDescription) == 16);

inline constexpr std::uint32_t kAudioFormatLinearPCM = fourCharCode("lpcm");
inline constexpr std::uint32_t kAudioFormatALaw = fourCharCode("alaw");
inline constexpr std::uint32_t kAudioFormatULaw = fourCharCode("ulaw");

inline constexpr std::uint32_t kAudioFormatMPEG4AAC = fourCharCode("aac ");
inline constexpr std::uint32_t kAudioFormatMPEGLayer1 = fourCharCode(".mp1");
inline constexpr std::uint32_t kAudioFormatMPEGLayer2 = fourCharCode(".mp2");
inline constexpr std::uint32_t kAudioFormatMPEGLayer3 = fourCharCode(".mp3");
inline constexpr std::uint32_t kAudioFormatALAC = fourCharCode("alac");
inline constexpr std::uint32_t kAudioFormatFLAC = fourCharCode("flac");
inline constexpr std::uint32_t kAudioFormatOpus = fourCharCode("opus");
inline constexpr std::uint32_t kAudioFormatVorbis = fourCharCode("vorb");  ///< our own code
inline constexpr std::uint32_t kAudioFormatAC3 = fourCharCode("ac-3");
inline constexpr std::uint32_t kAudioFormatAMR = fourCharCode("samr");  ///< narrow band

/// Bits of `mFormatFlags` for linear PCM.
inline constexpr std::uint32_t kAudioFormatFlagIsFloat = 0x1;
inline constexpr std::uint32_t kAudioFormatFlagIsBigEndian = 0x2;
inline constexpr std::uint32_t kAudioFormatFlagIsSignedInteger = 0x4;
inline constexpr std::uint32_t kAudioFormatFlagIsPacked = 0x8;
inline constexpr std::uint32_t kAudioFormatFlagIsAlignedHigh = 0x10;  ///< in a wider container
inline constexpr std::uint32_t kAudioFormatFlagIsNonInterleaved = 0x20;

/// Values of `mFormatFlags` for ALAC and FLAC: bits per sample before encoding. 0 if unknown.
inline constexpr std::uint32_t kLosslessFormatFlag_16BitSourceData = 1;
inline constexpr std::uint32_t kLosslessFormatFlag_20BitSourceData = 2;
inline constexpr std::uint32_t kLosslessFormatFlag_24BitSourceData = 3;
inline constexpr std::uint32_t kLosslessFormatFlag_32BitSourceData = 4;

/// SBC streams: a zero byte, then "sbc".
inline constexpr std::uint32_t kAudioFormatSbc = 0x00736263;

/// Bits of `mFormatFlags` for SBC. They do not contain the sample rate, which is in `mSampleRate`.
/// A format contains the number of channels, but not the channel mode.
inline constexpr std::uint32_t kSbcFormatFlagIsBigEndian = 0x2;  ///< PCM side is big-endian
inline constexpr std::uint32_t kSbcFormatFlagBlocksBits =
    0x300;  ///< code 0 to 3 for 4, 8, 12, 16 blocks
inline constexpr std::uint32_t kSbcFormatFlagIs8Blocks = 0x100;
inline constexpr std::uint32_t kSbcFormatFlagIs12Blocks = 0x200;
inline constexpr std::uint32_t kSbcFormatFlagAllocationBits = 0x400;  ///< set: SNR, clear: loudness
inline constexpr std::uint32_t kSbcFormatFlagIs8Subband = 0x800;      ///< set: 8 subbands, clear: 4
inline constexpr std::uint32_t kSbcFormatFlagBitPoolBits = 0xFF0000;

/// Format of linear PCM: packed signed integers, little-endian. The samples of a frame follow one
/// another, one for each channel. The codec nodes take and produce only 16-bit PCM.
///
/// sampleRate      frames per second
/// channels        samples in a frame
/// bitsPerChannel  bits of a sample: 8, 16, 24 or 32
constexpr AudioStreamBasicDescription linearPcm(double sampleRate, std::uint32_t channels,
                                                std::uint32_t bitsPerChannel = 16) {
    const std::uint32_t bytesPerFrame = bitsPerChannel / 8 * channels;
    return {.mSampleRate = sampleRate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
            .mBytesPerPacket = bytesPerFrame,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = bytesPerFrame,
            .mChannelsPerFrame = channels,
            .mBitsPerChannel = bitsPerChannel};
}

/// Format of an Opus stream, as the Opus nodes take and report it. The size and the duration of a
/// packet may vary, so both fields are 0.
///
/// sampleRate  frames per second on the PCM side: 8000, 12000, 16000, 24000 or 48000
/// channels    1 or 2
constexpr AudioStreamBasicDescription opusFormat(double sampleRate, std::uint32_t channels) {
    return {
        .mSampleRate = sampleRate, .mFormatID = kAudioFormatOpus, .mChannelsPerFrame = channels};
}

}  // namespace zav
