#pragma once

#include <opus.h>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

/// Plain loops over libopus, as a reference for the codec nodes.
namespace zav::test {

/// Bytes of 60 ms of 16-bit PCM.
inline std::size_t opusPacketPcmSize(int rate, int channels) {
    return static_cast<std::size_t>(rate * 60 / 1000 * channels * 2);
}

/// Encodes all whole packets of PCM, with a variable bit rate as our encoder does, or with a
/// constant one.
inline std::vector<std::vector<std::byte>> opusLoopEncode(std::span<const std::byte> pcm, int rate,
                                                          int channels,
                                                          bool hasConstantBitRate = false) {
    const std::unique_ptr<::OpusEncoder, decltype(&opus_encoder_destroy)> encoder(
        opus_encoder_create(rate, channels, OPUS_APPLICATION_AUDIO, nullptr), opus_encoder_destroy);
    opus_encoder_ctl(encoder.get(), OPUS_SET_VBR(hasConstantBitRate ? 0 : 1));
    const std::size_t pcmSize = opusPacketPcmSize(rate, channels);
    std::vector<std::vector<std::byte>> packets;
    for (; pcm.size() >= pcmSize; pcm = pcm.subspan(pcmSize)) {
        std::vector<std::byte> packet(3828);
        const auto size =
            opus_encode(encoder.get(), reinterpret_cast<const opus_int16*>(pcm.data()),
                        rate * 60 / 1000, reinterpret_cast<unsigned char*>(packet.data()),
                        static_cast<opus_int32>(packet.size()));
        packet.resize(static_cast<std::size_t>(size));
        packets.push_back(std::move(packet));
    }
    return packets;
}

inline std::vector<std::byte> opusLoopDecode(std::span<const std::vector<std::byte>> packets,
                                             int rate, int channels) {
    const std::unique_ptr<::OpusDecoder, decltype(&opus_decoder_destroy)> decoder(
        opus_decoder_create(rate, channels, nullptr), opus_decoder_destroy);
    std::vector<std::byte> pcm;
    for (const auto& packet : packets) {
        std::vector<opus_int16> samples(opusPacketPcmSize(rate, channels) / 2);
        const int frames = opus_decode(
            decoder.get(), reinterpret_cast<const unsigned char*>(packet.data()),
            static_cast<opus_int32>(packet.size()), samples.data(), rate * 60 / 1000, 0);
        const auto bytes = std::as_bytes(std::span(samples))
                               .first(static_cast<std::size_t>(frames * channels * 2));
        pcm.insert(pcm.end(), bytes.begin(), bytes.end());
    }
    return pcm;
}

}  // namespace zav::test
