#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

#include "tests/support/NodeTest.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/WrappedCodecs.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;
using Mode = SBCCoding::ChannelMode;
using Endian = SBCCoding::Endianess;

TEST(SBCConfiguration, packsIntoTheFlagsBitByBitAndComesBack) {
    Configuration configuration;
    EXPECT_EQ(configuration.formatFlags(), 0x00200B00U);
    configuration.endian = Endian::big;
    EXPECT_EQ(configuration.formatFlags(), 0x00200B02U);
    configuration.allocation = SBCCoding::AllocationMethod::SNR;
    configuration.subband = SBCCoding::Subband::_4;
    configuration.blocks = SBCCoding::Block::_8;
    configuration.bitpool = 0xFA;
    EXPECT_EQ(configuration.formatFlags(), 0x00FA0502U);

    const auto back =
        Configuration::fromDataFormat(sbcFormat(48000, 2, 0x00FA0602U | 0x80000000U, 0));
    EXPECT_EQ(back->freq, SBCCoding::Frequency::_48000);
    EXPECT_EQ(back->mode, Mode::stereo);
    EXPECT_EQ(back->blocks, SBCCoding::Block::_12);
    EXPECT_EQ(back->formatFlags(), 0x00FA0602U);
    const auto odd = Configuration::fromDataFormat(sbcFormat(22050, 5, 0, 0));
    EXPECT_EQ(odd->freq, SBCCoding::Frequency::_16000);
    EXPECT_EQ(odd->mode, Mode::mono);
    EXPECT_EQ(odd->formatFlags(), 0U);
    EXPECT_EQ(SBCCoding::blockFromRawValue(-1), std::nullopt);
}

TEST(SBCConfiguration, comesBackFromAFrameWithItsMode) {
    for (const auto mode : {Mode::mono, Mode::dual, Mode::stereo, Mode::jointStereo}) {
        Configuration configuration;
        configuration.freq = SBCCoding::Frequency::_44100;
        configuration.mode = mode;
        configuration.blocks = SBCCoding::Block::_8;
        configuration.allocation = SBCCoding::AllocationMethod::SNR;
        configuration.bitpool = 21;
        auto frame = SbcLoop(configuration).encode(testPcm(128));
        const auto back = Configuration::fromFrame(frame.data(), configuration.frameLen());
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->mode, mode);
        EXPECT_EQ(back->freq, configuration.freq);
        EXPECT_EQ(back->formatFlags(), configuration.formatFlags());

        EXPECT_EQ(Configuration::fromFrame(frame.data(), configuration.frameLen() - 1), nullptr);
        frame[3] ^= std::byte{1};  // the checksum
        EXPECT_EQ(Configuration::fromFrame(frame.data(), frame.size()), nullptr);
    }
}

TEST(SBCConfiguration, describesTheStreamOfItsFrames) {
    Configuration configuration;
    EXPECT_EQ(zav::sbcFormat(configuration, 16000, 1), sbcFormat(16000, 1, 0x00200B00, 72));
    configuration.mode = Mode::jointStereo;
    configuration.endian = Endian::big;
    configuration.bitpool = 51;
    // 4 bytes, 8 of scale factors, 8 bits and 16 x 51 bits; 115 bytes
    EXPECT_EQ(zav::sbcFormat(configuration, 48000, 2), sbcFormat(48000, 2, 0x00330B02, 115));
}

// The state that nobody asked for is made at the end, and libsbc's memory behind it stays.
TEST(SBCConfiguration, makesItsStateOnceAndEndsWithoutFinishingTheCodec) {
    const WrappedCodecs before = wrappedCodecs();
    { const Configuration unused; }
    EXPECT_EQ(wrappedCodecs().sbcStatesMade, before.sbcStatesMade + 1);
    {
        Configuration used;
        EXPECT_EQ(used.codeSize(), 256U);  // 16 blocks x 8 subbands x 2 bytes
        EXPECT_EQ(used.frameLen(), 72U);   // 4 + 4 scale factor bytes + 16 x 32 bits
        used.bitpool = 64;
        used.subband = SBCCoding::Subband::_4;
        EXPECT_EQ(used.codeSize(), 256U);
        EXPECT_EQ(used.frameLen(), 72U);
    }
    EXPECT_EQ(wrappedCodecs().sbcStatesMade, before.sbcStatesMade + 2);
    EXPECT_EQ(wrappedCodecs().sbcStatesFinished, before.sbcStatesFinished);
}

class SBCCodingTest : public NodeTest<SBCCoding> {};

TEST_F(SBCCodingTest, takesTheRateTheChannelsAndTheByteOrderOfItsConfigurationOnly) {
    constexpr std::uint32_t kBig = kAudioFormatFlagIsBigEndian;
    const auto configuration = std::make_shared<Configuration>();
    configuration->freq = SBCCoding::Frequency::_32000;
    for (const auto mode : {Mode::mono, Mode::dual, Mode::stereo, Mode::jointStereo}) {
        for (const std::uint32_t flags : {0U, kBig}) {
            SCOPED_TRACE(static_cast<int>(mode));
            configuration->mode = mode;
            configuration->endian = flags == kBig ? Endian::big : Endian::little;
            const std::uint32_t channels = mode == Mode::mono ? 1 : 2;
            make(pcmFormat(32000, channels, 16, flags), configuration);
            expectRefused<SBCCoding>(
                {pcmFormat(16000, channels, 16, flags), pcmFormat(22050, channels, 16, flags),
                 pcmFormat(32000.5, channels, 16, flags), pcmFormat(32000, 0, 16, flags),
                 pcmFormat(32000, 3 - channels, 16, flags), pcmFormat(32000, 3, 16, flags),
                 pcmFormat(32000, channels, 16, kBig - flags)},
                configuration);
        }
    }
}

TEST_F(SBCCodingTest, passesTheFlowOnAndDropsTheAudio) {
    const auto configuration = std::make_shared<Configuration>();
    make(pcmFormat(16000, 1), configuration);
    EXPECT_EQ(node_->config(), configuration);
    EXPECT_EQ(node_->outDataFormat(), AudioStreamBasicDescription{});
    start();
    push(testBytes(4));
    end();
    EXPECT_EQ(sink_->calls, (Calls{"start", "end"}));
}

}  // namespace
}  // namespace zav::test
