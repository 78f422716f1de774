#pragma once

#include <sbc/sbc.h>

#include <cstddef>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

/// Plain loops over libsbc, as a reference for the codec nodes.
namespace zav::test {

class SbcLoop {
 public:
    explicit SbcLoop(const SBCCoding::SBCConfiguration& configuration) {
        sbc_init(&state_, 0);
        state_.frequency = static_cast<std::uint8_t>(configuration.freq);
        state_.mode = static_cast<std::uint8_t>(configuration.mode);
        state_.subbands = static_cast<std::uint8_t>(configuration.subband);
        state_.blocks = static_cast<std::uint8_t>(configuration.blocks);
        state_.allocation = static_cast<std::uint8_t>(configuration.allocation);
        state_.bitpool = configuration.bitpool;
        state_.endian = static_cast<std::uint8_t>(configuration.endian);
    }
    ~SbcLoop() { sbc_finish(&state_); }

    SbcLoop(const SbcLoop&) = delete;
    SbcLoop& operator=(const SbcLoop&) = delete;

    /// Encodes all whole blocks of PCM.
    std::vector<std::byte> encode(std::span<const std::byte> pcm) {
        const std::size_t codeSize = sbc_get_codesize(&state_);
        const std::size_t frameLength = sbc_get_frame_length(&state_);
        std::vector<std::byte> frames(pcm.size() / codeSize * frameLength);
        for (std::size_t i = 0; i < pcm.size() / codeSize; ++i) {
            ssize_t written = 0;
            sbc_encode(&state_, &pcm[i * codeSize], codeSize, &frames[i * frameLength], frameLength,
                       &written);
        }
        return frames;
    }

    /// Decodes all frames. They must have one length.
    std::vector<std::byte> decode(std::span<const std::byte> frames) {
        const std::size_t codeSize = sbc_get_codesize(&state_);
        const std::size_t frameLength = sbc_get_frame_length(&state_);
        std::vector<std::byte> pcm(frames.size() / frameLength * codeSize);
        for (std::size_t i = 0; i < frames.size() / frameLength; ++i) {
            std::size_t written = 0;
            sbc_decode(&state_, &frames[i * frameLength], frameLength, &pcm[i * codeSize], codeSize,
                       &written);
        }
        return pcm;
    }

 private:
    sbc_t state_{};
};

}  // namespace zav::test
