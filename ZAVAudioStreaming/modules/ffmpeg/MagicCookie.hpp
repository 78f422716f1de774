#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Magic cookies come in more forms than the one that libavcodec calls extradata. Handed out, a
/// cookie is always the bare configuration: AAC's AudioSpecificConfig, ALAC's 24 bytes, FLAC's 34
/// of STREAMINFO, Opus' identification header, Vorbis' three headers in libavcodec's packing.
namespace zav::detail {

/// Whether streams of this codec have a cookie at all.
bool hasMagicCookie(AVCodecID codec);

/// libavcodec's extradata for a cookie. Also taken: AAC's configuration inside an ES descriptor,
/// ALAC's 36 bytes (as an atom) and 48 (behind a 'frma' atom), FLAC's behind the file's marker.
/// Throws -50 for what is none of these.
std::vector<std::byte> extradataOfCookie(AVCodecID codec, std::span<const std::byte> cookie);

/// The reverse, into the bare form.
std::vector<std::byte> cookieOfExtradata(AVCodecID codec, std::span<const std::byte> extradata);

/// The identification header of an Opus stream of one or two channels (RFC 7845, section 5.1).
/// `preSkip` is in frames at 48 kHz, `inputRate` in Hz.
std::vector<std::byte> makeOpusHead(std::uint32_t channels, std::uint16_t preSkip,
                                    std::uint32_t inputRate);

/// ALAC's configuration with the parameters that encoders have. `depth` is in bits.
std::vector<std::byte> makeAlacConfig(std::uint32_t framesPerPacket, std::uint32_t depth,
                                      std::uint32_t channels, std::uint32_t rate);

/// ISO/IEC 14496-3, 1.6.2.1, for AAC-LC. Empty for a number of channels that has no code.
std::vector<std::byte> makeAudioSpecificConfig(std::uint32_t rate, std::uint32_t channels);

/// The same from the ADTS header that a packet begins with; empty when it begins with none.
std::vector<std::byte> audioSpecificConfigOfAdts(std::span<const std::byte> packet);

/// Bytes of the ADTS header that a packet begins with; 0 when it begins with none.
std::size_t adtsHeaderSize(std::span<const std::byte> packet);

}  // namespace zav::detail
