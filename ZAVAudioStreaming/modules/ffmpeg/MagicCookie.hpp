#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Converts between magic cookies and libavcodec's extradata. Cookies are accepted in several forms
/// and returned in one, the bare configuration: AAC's AudioSpecificConfig, ALAC's 24 bytes, FLAC's
/// 34 bytes of STREAMINFO, Opus' identification header, Vorbis' three headers in libavcodec's
/// packing.
namespace zav::detail {

/// True if streams of this codec have a cookie.
bool hasMagicCookie(AVCodecID codec);

/// Returns libavcodec's extradata for a cookie. Accepts the bare forms. Also accepts AAC's
/// configuration in an ES descriptor, ALAC's as an atom (36 bytes) or after a 'frma' atom (48
/// bytes), and FLAC's STREAMINFO after the file's marker. Throws -50 for all other bytes.
std::vector<std::byte> extradataOfCookie(AVCodecID codec, std::span<const std::byte> cookie);

/// The bare cookie for libavcodec's extradata; empty if the codec has no cookies.
std::vector<std::byte> cookieOfExtradata(AVCodecID codec, std::span<const std::byte> extradata);

/// The identification header of an Opus stream of one or two channels (RFC 7845, section 5.1).
/// `preSkip` is in frames at 48 kHz, `inputRate` in Hz.
std::vector<std::byte> makeOpusHead(std::uint32_t channels, std::uint16_t preSkip,
                                    std::uint32_t inputRate);

/// ALAC's configuration with the usual parameters of encoders. `depth` is in bits, `rate` in Hz.
std::vector<std::byte> makeAlacConfig(std::uint32_t framesPerPacket, std::uint32_t depth,
                                      std::uint32_t channels, std::uint32_t rate);

/// The AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) of AAC-LC; `rate` is in Hz. Empty if the
/// number of channels has no code.
std::vector<std::byte> makeAudioSpecificConfig(std::uint32_t rate, std::uint32_t channels);

/// The AudioSpecificConfig from the ADTS header at the start of a packet; empty without a header.
std::vector<std::byte> audioSpecificConfigOfAdts(std::span<const std::byte> packet);

/// Bytes of the ADTS header at the start of a packet; 0 without a header.
std::size_t adtsHeaderSize(std::span<const std::byte> packet);

}  // namespace zav::detail
