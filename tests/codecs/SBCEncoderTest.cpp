#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"

#include <gtest/gtest.h>

#include <algorithm>

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

/// A default encoder: mono 16 kHz, blocks of 256 bytes to frames of 72.
class SBCEncoderTest : public testing::Test {
 protected:
    static constexpr std::size_t kCodeSize = 256;
    static constexpr std::size_t kFrameLength = 72;

    SBCEncoderTest() {
        source_->setOutDataFormat(pcmFormat(16000, 1));
        encoder_ = makeNode<SBCEncoder>(source_, configuration_);
        sink_ = makeNode<RecordingSink>(encoder_);
    }

    void push(std::span<const std::byte> bytes) {
        source_->downstreams().receiveAudio(bytes.data(), bytes.size(), 12345, nullptr);
    }

    std::size_t savedSize() const {
        return encoder_->partialFrameBytes() ? encoder_->partialFrameBytes()->size() : 0;
    }

    std::shared_ptr<Configuration> configuration_ = std::make_shared<Configuration>();
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<SBCEncoder> encoder_;
    std::shared_ptr<RecordingSink> sink_;
    const Bytes pcm_ = testPcm(4000);
};

TEST_F(SBCEncoderTest, announcesItsFormat) {
    AudioStreamBasicDescription expected;
    expected.mSampleRate = 16000;
    expected.mFormatID = 0x00736263;
    expected.mFormatFlags = 0x00200B00;
    expected.mBytesPerPacket = 72;
    expected.mFramesPerPacket = 128;
    expected.mChannelsPerFrame = 1;
    EXPECT_EQ(encoder_->outDataFormat(), expected);
}

TEST_F(SBCEncoderTest, savesWhatDoesNotFillAFrame) {
    const std::span pcm(pcm_);
    push(pcm.subspan(0, 1000));
    EXPECT_EQ(savedSize(), 232U);
    push(pcm.subspan(1000, 1000));
    EXPECT_EQ(savedSize(), 208U);
    ASSERT_EQ(sink_->chunks.size(), 2U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 3U);
    EXPECT_EQ(sink_->chunks[0].bytes.size(), 3 * kFrameLength);
    EXPECT_FALSE(sink_->chunks[0].hasDescriptions);
    EXPECT_EQ(sink_->chunks[1].packetNum, 4U);
    EXPECT_EQ(sink_->allBytes(), SbcLoop(*configuration_).encode(pcm.subspan(0, 2000)));
}

TEST_F(SBCEncoderTest, givesTheSameFramesForAnyCutThatLeavesBytesOver) {
    const Bytes expected = SbcLoop(*configuration_).encode(pcm_);
    // Odd steps from 33 on: no chunk of these 8000 bytes ends on a frame boundary.
    for (const std::size_t step : {33U, 101U, 255U, 257U, 511U, 1023U, 7999U}) {
        const auto encoder = makeNode<SBCEncoder>(source_, std::make_shared<Configuration>());
        const auto sink = makeNode<RecordingSink>(encoder);
        for (std::size_t fed = 0; fed < pcm_.size(); fed += step) {
            encoder->receiveAudio(&pcm_[fed], std::min(step, pcm_.size() - fed), 0, nullptr);
        }
        EXPECT_EQ(sink->allBytes(), expected) << "chunks of " << step;
    }
}

TEST_F(SBCEncoderTest, passesOnAChunkWithoutFrames) {
    push(std::span(pcm_).subspan(0, 100));
    push({});
    ASSERT_EQ(sink_->chunks.size(), 2U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 0U);
    EXPECT_TRUE(sink_->chunks[0].bytes.empty());
    EXPECT_EQ(savedSize(), 100U);
}

TEST_F(SBCEncoderTest, waitsWhenAChunkIsTooShortForTheSavedFrame) {
    const std::span pcm(pcm_);
    push(pcm.subspan(0, 100));
    push(pcm.subspan(100, 100));
    EXPECT_EQ(sink_->chunks[1].packetNum, 0U);
    EXPECT_EQ(savedSize(), 200U);
    push(pcm.subspan(200, 100));
    EXPECT_EQ(savedSize(), 44U);
    EXPECT_EQ(sink_->allBytes(), SbcLoop(*configuration_).encode(pcm.subspan(0, 256)));
}

// Bytes stay saved through a chunk that ends on a frame boundary, and begin the next chunk again.
// Streams that exist depend on it.
TEST_F(SBCEncoderTest, repeatsSavedBytesAfterAChunkThatEndsOnAFrameBoundary) {
    const std::span pcm(pcm_);
    push(pcm.subspan(0, 300));                // one frame, 44 bytes saved
    push(pcm.subspan(300, 212 + kCodeSize));  // completes that frame and one more
    EXPECT_EQ(sink_->chunks[1].packetNum, 2U);
    EXPECT_EQ(savedSize(), 44U);
    push(pcm.subspan(768, kCodeSize));
    EXPECT_EQ(sink_->chunks[2].packetNum, 1U);
    EXPECT_EQ(savedSize(), 44U);

    Bytes encoded(pcm.begin(), pcm.begin() + 768);
    encoded.insert(encoded.end(), pcm.begin() + 256, pcm.begin() + 300);
    encoded.insert(encoded.end(), pcm.begin() + 768, pcm.begin() + 768 + 212);
    EXPECT_EQ(sink_->allBytes(), SbcLoop(*configuration_).encode(encoded));
}

TEST_F(SBCEncoderTest, dropsSavedBytesAtFlowEndButNotAtFlowStart) {
    push(std::span(pcm_).subspan(0, 100));
    source_->downstreams().onAudioStreamFlowStart();
    EXPECT_EQ(savedSize(), 100U);
    source_->downstreams().onAudioStreamFlowEnd();
    EXPECT_EQ(encoder_->partialFrameBytes(), std::nullopt);
    EXPECT_EQ(sink_->calls, (std::vector<std::string>{"audio", "start", "end"}));
    push(std::span(pcm_).subspan(0, kCodeSize));
    EXPECT_EQ(savedSize(), 0U);
}

TEST_F(SBCEncoderTest, stopsWhenTheCodecRefuses) {
    const auto pushWithRefusal = [&](std::size_t size, int refusedCall) {
        refuseSbcEncode(refusedCall);
        push(std::span(pcm_).subspan(0, size));
    };
    EXPECT_DEATH(pushWithRefusal(3 * kCodeSize, 2),
                 "^Fatal error: Encoding failed: file SBCCoding, line 349\n");
    push(std::span(pcm_).subspan(0, 200));
    EXPECT_DEATH(pushWithRefusal(3 * kCodeSize, 1),
                 "^Fatal error: Encoding failed: file SBCCoding, line 338\n");
    EXPECT_DEATH(encoder_->receiveAudio(pcm_.data(), std::uint64_t{1} << 63U, 1, nullptr),
                 "Fatal error: Not enough bits");
}

TEST_F(SBCEncoderTest, givesZerosForABitpoolThatCannotBePacked) {
    const auto tooMuch = std::make_shared<Configuration>();
    tooMuch->bitpool = 200;  // mono with 8 subbands takes 128 at most
    const auto encoder = makeNode<SBCEncoder>(source_, tooMuch);
    const auto sink = makeNode<RecordingSink>(encoder);
    encoder->receiveAudio(pcm_.data(), 2 * kCodeSize, 0, nullptr);
    EXPECT_EQ(sink->allBytes(), Bytes(2 * tooMuch->frameLen()));
}

TEST(SBCEncoder, refusesUnsuitableUpstreams) {
    const auto source = makeNode<PeripheralSource>();
    const auto make = [&] {
        return makeNode<SBCEncoder>(source, std::make_shared<Configuration>());
    };
    EXPECT_THROW(make(), AudioStreamError);  // all zero
    auto format = pcmFormat(16000, 1);
    format.mFormatID = kAudioFormatSbc;
    source->setOutDataFormat(format);
    EXPECT_THROW(make(), AudioStreamError);
    source->setOutDataFormat(pcmFormat(22050, 1));
    EXPECT_THROW(make(), AudioStreamError);
    EXPECT_TRUE(source->downstreams().empty());

    format = pcmFormat(16000, 1);
    format.mBitsPerChannel = 7;
    source->setOutDataFormat(format);
    EXPECT_DEATH(make(), "Fatal error: Division by zero");
}

TEST(SBCEncoder, encodesAsAPlainLoopDoesWithEveryBitpool) {
    const Bytes pcm = testPcm(2 * 128 * 2);
    for (const auto mode : {SBCCoding::ChannelMode::mono, SBCCoding::ChannelMode::dual,
                            SBCCoding::ChannelMode::stereo, SBCCoding::ChannelMode::jointStereo}) {
        const bool isMono = mode == SBCCoding::ChannelMode::mono;
        const auto source = makeNode<PeripheralSource>();
        source->setOutDataFormat(pcmFormat(16000, isMono ? 1 : 2));
        for (const auto subband : {SBCCoding::Subband::_4, SBCCoding::Subband::_8}) {
            const bool isPerChannel = isMono || mode == SBCCoding::ChannelMode::dual;
            const unsigned subbands = subband == SBCCoding::Subband::_8 ? 8 : 4;
            const unsigned largest = std::min((isPerChannel ? 16U : 32U) * subbands, 250U);
            for (unsigned bitpool = 2; bitpool <= largest; ++bitpool) {
                const auto configuration = std::make_shared<Configuration>();
                configuration->mode = mode;
                configuration->subband = subband;
                configuration->bitpool = static_cast<std::uint8_t>(bitpool);
                const auto encoder = makeNode<SBCEncoder>(source, configuration);
                const auto sink = makeNode<RecordingSink>(encoder);
                encoder->receiveAudio(pcm.data(), pcm.size(), 0, nullptr);
                ASSERT_EQ(sink->allBytes(), SbcLoop(*configuration).encode(pcm))
                    << "mode " << static_cast<int>(mode) << ", bitpool " << bitpool;
            }
        }
    }
}

TEST(SBCEncoder, encodesAsAPlainLoopDoesInEveryMode) {
    for (const auto mode : {SBCCoding::ChannelMode::dual, SBCCoding::ChannelMode::stereo,
                            SBCCoding::ChannelMode::jointStereo}) {
        for (const auto endian : {SBCCoding::Endianess::little, SBCCoding::Endianess::big}) {
            auto configuration = std::make_shared<Configuration>();
            configuration->freq = SBCCoding::Frequency::_48000;
            configuration->mode = mode;
            configuration->endian = endian;
            configuration->blocks = SBCCoding::Block::_12;
            const auto source = makeNode<PeripheralSource>();
            const bool isBig = endian == SBCCoding::Endianess::big;
            source->setOutDataFormat(pcmFormat(48000, 2, 16, isBig ? 6 : 4));
            const auto encoder = makeNode<SBCEncoder>(source, configuration);
            const auto sink = makeNode<RecordingSink>(encoder);
            const Bytes pcm = testPcm(3001);
            encoder->receiveAudio(pcm.data(), pcm.size(), 0, nullptr);
            EXPECT_EQ(sink->allBytes(), SbcLoop(*configuration).encode(pcm));
            EXPECT_EQ(encoder->outDataFormat().mFramesPerPacket, 96U);
            EXPECT_EQ(encoder->outDataFormat().mBytesPerPacket, configuration->frameLen());
            EXPECT_EQ((encoder->outDataFormat().mFormatFlags & 2) != 0, isBig);
        }
    }
}

}  // namespace
}  // namespace zav::test
