#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

#include <gtest/gtest.h>

namespace zav::test {
namespace {

TEST(AudioStreamFormat, ofLinearPcmCountsPackedInterleavedSamples) {
    EXPECT_EQ(linearPcm(16000, 1),
              (AudioStreamBasicDescription{16000, 0x6C70636D, 0xC, 2, 1, 2, 1, 16, 0}));
    EXPECT_EQ(linearPcm(48000, 2, 24),
              (AudioStreamBasicDescription{48000, 0x6C70636D, 0xC, 6, 1, 6, 2, 24, 0}));
}

TEST(AudioStreamFormat, ofOpusHasRateAndChannelsAlone) {
    EXPECT_EQ(opusFormat(24000, 2),
              (AudioStreamBasicDescription{24000, 0x6F707573, 0, 0, 0, 0, 2, 0, 0}));
}

}  // namespace
}  // namespace zav::test
