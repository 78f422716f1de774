#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

#include <gtest/gtest.h>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/WrappedSbc.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;

TEST(SBCEnumerations, haveRawValuesOnlyWhereTheyAreKnown) {
    EXPECT_EQ(SBCCoding::frequencyFromRawValue(44100), SBCCoding::Frequency::_44100);
    EXPECT_EQ(SBCCoding::frequencyFromRawValue(22050), std::nullopt);
    EXPECT_EQ(SBCCoding::rawValue(SBCCoding::Frequency::_48000), 48000U);
    EXPECT_EQ(SBCCoding::rawValue(SBCCoding::Block::_16), 3U);
    EXPECT_EQ(SBCCoding::blockFromRawValue(2), SBCCoding::Block::_12);
    EXPECT_EQ(SBCCoding::blockFromRawValue(4), std::nullopt);
    EXPECT_EQ(SBCCoding::blockFromRawValue(-1), std::nullopt);
}

TEST(SBCConfiguration, packsIntoTheFlagsBitByBit) {
    Configuration configuration;
    EXPECT_EQ(configuration.formatFlags(), 0x00200B00U);
    configuration.endian = SBCCoding::Endianess::big;
    EXPECT_EQ(configuration.formatFlags(), 0x00200B02U);
    configuration.allocation = SBCCoding::AllocationMethod::SNR;
    configuration.subband = SBCCoding::Subband::_4;
    configuration.blocks = SBCCoding::Block::_8;
    configuration.bitpool = 0xFA;
    EXPECT_EQ(configuration.formatFlags(), 0x00FA0502U);
}

TEST(SBCConfiguration, comesBackFromAFormat) {
    const auto back =
        Configuration::fromDataFormat(sbcFormat(48000, 2, 0x00FA0602U | 0x80000000U, 0));
    EXPECT_EQ(back->freq, SBCCoding::Frequency::_48000);
    EXPECT_EQ(back->mode, SBCCoding::ChannelMode::stereo);
    EXPECT_EQ(back->endian, SBCCoding::Endianess::big);
    EXPECT_EQ(back->blocks, SBCCoding::Block::_12);
    EXPECT_EQ(back->allocation, SBCCoding::AllocationMethod::SNR);
    EXPECT_EQ(back->subband, SBCCoding::Subband::_4);
    EXPECT_EQ(back->bitpool, 0xFA);
    EXPECT_EQ(back->formatFlags(), 0x00FA0602U);

    const auto odd = Configuration::fromDataFormat(sbcFormat(22050, 5, 0, 0));
    EXPECT_EQ(odd->freq, SBCCoding::Frequency::_16000);
    EXPECT_EQ(odd->mode, SBCCoding::ChannelMode::mono);
    EXPECT_EQ(odd->bitpool, 0);
}

TEST(SBCConfiguration, comesBackFromAFrameWithItsMode) {
    for (const auto mode : {SBCCoding::ChannelMode::mono, SBCCoding::ChannelMode::dual,
                            SBCCoding::ChannelMode::stereo, SBCCoding::ChannelMode::jointStereo}) {
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

TEST(SBCConfiguration, makesItsStateOnceAndKeepsIt) {
    Configuration configuration;
    EXPECT_EQ(configuration.codeSize(), 256U);  // 16 blocks x 8 subbands x 2 bytes
    EXPECT_EQ(configuration.frameLen(), 72U);   // 4 + 4 scale factor bytes + 16 x 32 bits
    sbc_struct* const state = configuration.sbc();
    configuration.bitpool = 64;
    configuration.subband = SBCCoding::Subband::_4;
    EXPECT_EQ(configuration.sbc(), state);
    EXPECT_EQ(configuration.codeSize(), 256U);
    EXPECT_EQ(configuration.frameLen(), 72U);
}

// The state that nobody asked for is made at the end, and libsbc's memory behind it stays.
TEST(SBCConfiguration, endsWithoutFinishingTheCodec) {
    const SbcStateCounts before = sbcStateCounts();
    { const Configuration unused; }
    EXPECT_EQ(sbcStateCounts().made, before.made + 1);
    {
        Configuration used;
        used.frameLen();
        EXPECT_EQ(sbcStateCounts().made, before.made + 2);
    }
    EXPECT_EQ(sbcStateCounts().made, before.made + 2);
    EXPECT_EQ(sbcStateCounts().finished, before.finished);
}

struct ConstructionCase {
    const char* name;
    double rate;
    std::uint32_t channels;
    std::uint32_t flags;
    SBCCoding::ChannelMode mode;
    SBCCoding::Endianess endian;
    bool isAccepted;
};

class SBCCodingConstruction : public testing::TestWithParam<ConstructionCase> {};

TEST_P(SBCCodingConstruction, checksRateChannelsAndByteOrder) {
    const ConstructionCase& given = GetParam();
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(pcmFormat(given.rate, given.channels, 16, given.flags));
    const auto configuration = std::make_shared<Configuration>();
    configuration->freq = SBCCoding::Frequency::_32000;
    configuration->mode = given.mode;
    configuration->endian = given.endian;
    if (given.isAccepted) {
        const auto node = makeNode<SBCCoding>(source, configuration);
        EXPECT_EQ(node->config(), configuration);
        EXPECT_EQ(node->outDataFormat(), AudioStreamBasicDescription{});
        EXPECT_EQ(source->downstreams().size(), 1U);
    } else {
        EXPECT_THROW(makeNode<SBCCoding>(source, configuration), AudioStreamError);
        EXPECT_TRUE(source->downstreams().empty());
    }
}

using Mode = SBCCoding::ChannelMode;
using Endian = SBCCoding::Endianess;

INSTANTIATE_TEST_SUITE_P(
    , SBCCodingConstruction,
    testing::Values(
        ConstructionCase{"mono", 32000, 1, 0, Mode::mono, Endian::little, true},
        ConstructionCase{"stereo", 32000, 2, 0, Mode::stereo, Endian::little, true},
        ConstructionCase{"joint", 32000, 2, 0, Mode::jointStereo, Endian::little, true},
        ConstructionCase{"dual", 32000, 2, 0, Mode::dual, Endian::little, true},
        ConstructionCase{"bigEndian", 32000, 1, 2, Mode::mono, Endian::big, true},
        ConstructionCase{"otherRate", 16000, 1, 0, Mode::mono, Endian::little, false},
        ConstructionCase{"unknownRate", 22050, 1, 0, Mode::mono, Endian::little, false},
        ConstructionCase{"nearlyTheRate", 32000.5, 1, 0, Mode::mono, Endian::little, false},
        ConstructionCase{"stereoAsMono", 32000, 2, 0, Mode::mono, Endian::little, false},
        ConstructionCase{"monoAsStereo", 32000, 1, 0, Mode::stereo, Endian::little, false},
        ConstructionCase{"noChannels", 32000, 0, 0, Mode::mono, Endian::little, false},
        ConstructionCase{"threeChannels", 32000, 3, 0, Mode::stereo, Endian::little, false},
        ConstructionCase{"bigAsLittle", 32000, 1, 2, Mode::mono, Endian::little, false},
        ConstructionCase{"littleAsBig", 32000, 1, 0, Mode::mono, Endian::big, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SBCCoding, byItselfPassesTheFlowOnAndDropsTheAudio) {
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(pcmFormat(16000, 1));
    const auto node = makeNode<SBCCoding>(source, std::make_shared<Configuration>());
    const auto sink = makeNode<RecordingSink>(node);
    source->downstreams().onAudioStreamFlowStart();
    source->downstreams().receiveAudio("abcd", 4, 2, nullptr);
    source->downstreams().onAudioStreamFlowEnd();
    EXPECT_EQ(sink->calls, (std::vector<std::string>{"start", "end"}));
}

}  // namespace
}  // namespace zav::test
