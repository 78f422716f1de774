#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"

#include "tests/support/Formats.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/WrappedCodecs.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;
using Mode = SBCCoding::ChannelMode;

/// A default encoder: mono 16 kHz, blocks of 256 bytes to frames of 72.
class SBCEncoderTest : public NodeTest<SBCEncoder> {
 protected:
    static constexpr std::size_t kCodeSize = 256;
    static constexpr std::size_t kFrameLength = 72;

    SBCEncoderTest() { make(pcmFormat(16000, 1), std::make_shared<Configuration>()); }

    Bytes plainLoop(std::span<const std::byte> pcm) const {
        return SbcLoop(*node_->config()).encode(pcm);
    }

    std::size_t savedSize() const {
        return node_->partialFrameBytes() ? node_->partialFrameBytes()->size() : 0;
    }

    const Bytes pcmBytes_ = testPcm(4000);
    const std::span<const std::byte> pcm_{pcmBytes_};
};

TEST_F(SBCEncoderTest, announcesItsFormat) {
    EXPECT_EQ(node_->outDataFormat(), sbcFormat(16000, 1, 0x00200B00, 72));
}

TEST_F(SBCEncoderTest, savesWhatDoesNotFillAFrame) {
    push(pcm_.first(100));
    push({});
    push(pcm_.subspan(100, 100));
    EXPECT_EQ(savedSize(), 200U);
    EXPECT_TRUE(sink_->allBytes().empty());
    push(pcm_.subspan(200, 800));
    EXPECT_EQ(savedSize(), 232U);
    push(pcm_.subspan(1000, 1000));
    EXPECT_EQ(savedSize(), 208U);

    // A chunk without frames is passed on, too.
    const std::vector<std::uint64_t> frameCounts = {0, 0, 0, 3, 4};
    ASSERT_EQ(sink_->chunks.size(), frameCounts.size());
    for (std::size_t i = 0; i < frameCounts.size(); ++i) {
        EXPECT_EQ(sink_->chunks[i].packetNum, frameCounts[i]);
        EXPECT_EQ(sink_->chunks[i].bytes.size(), frameCounts[i] * kFrameLength);
        EXPECT_FALSE(sink_->chunks[i].hasDescriptions);
    }
    EXPECT_EQ(sink_->allBytes(), plainLoop(pcm_.first(2000)));
}

TEST_F(SBCEncoderTest, givesTheSameFramesForAnyCutThatLeavesBytesOver) {
    // Odd steps from 33 on: no chunk of these 8000 bytes ends on a frame boundary.
    for (const std::size_t step : {33U, 101U, 255U, 257U, 511U, 1023U, 7999U}) {
        make(pcmFormat(16000, 1), std::make_shared<Configuration>());
        pushInChunks(pcm_, step);
        EXPECT_EQ(sink_->allBytes(), plainLoop(pcm_)) << "chunks of " << step;
    }
}

// Bytes stay saved through a chunk that ends on a frame boundary, and begin the next chunk again.
// Streams that exist depend on it.
TEST_F(SBCEncoderTest, repeatsSavedBytesAfterAChunkThatEndsOnAFrameBoundary) {
    push(pcm_.first(300));                     // one frame, 44 bytes saved
    push(pcm_.subspan(300, 212 + kCodeSize));  // completes that frame and one more
    EXPECT_EQ(sink_->chunks[1].packetNum, 2U);
    EXPECT_EQ(savedSize(), 44U);
    push(pcm_.subspan(768, kCodeSize));
    EXPECT_EQ(sink_->chunks[2].packetNum, 1U);
    EXPECT_EQ(savedSize(), 44U);

    Bytes encoded(pcm_.begin(), pcm_.begin() + 768);
    encoded.insert(encoded.end(), pcm_.begin() + 256, pcm_.begin() + 300);
    encoded.insert(encoded.end(), pcm_.begin() + 768, pcm_.begin() + 768 + 212);
    EXPECT_EQ(sink_->allBytes(), plainLoop(encoded));
}

TEST_F(SBCEncoderTest, dropsSavedBytesAtFlowEndButNotAtFlowStart) {
    push(pcm_.first(100));
    start();
    EXPECT_EQ(savedSize(), 100U);
    end();
    EXPECT_EQ(node_->partialFrameBytes(), std::nullopt);
    EXPECT_EQ(sink_->calls, (std::vector<std::string>{"audio", "start", "end"}));
    push(pcm_.first(kCodeSize));
    EXPECT_EQ(savedSize(), 0U);
}

TEST_F(SBCEncoderTest, stopsWhenTheCodecRefuses) {
    const auto pushWithRefusal = [&](int refusedCall) {
        wrappedCodecs().sbcEncodeToRefuse = refusedCall;
        push(pcm_.first(3 * kCodeSize));
    };
    EXPECT_DEATH(pushWithRefusal(2), "^Fatal error: Encoding failed: file SBCCoding, line 349\n");
    push(pcm_.first(200));
    EXPECT_DEATH(pushWithRefusal(1), "^Fatal error: Encoding failed: file SBCCoding, line 338\n");
    EXPECT_DEATH(node_->receiveAudio(pcm_.data(), std::uint64_t{1} << 63U, 1, nullptr),
                 "Fatal error: Not enough bits");
}

TEST_F(SBCEncoderTest, givesZerosForABitpoolThatCannotBePacked) {
    const auto tooMuch = std::make_shared<Configuration>();
    tooMuch->bitpool = 200;  // mono with 8 subbands takes 128 at most
    make(pcmFormat(16000, 1), tooMuch);
    push(pcm_.first(2 * kCodeSize));
    EXPECT_EQ(sink_->allBytes(), Bytes(2 * tooMuch->frameLen()));
}

TEST_F(SBCEncoderTest, refusesUnsuitableUpstreams) {
    const auto configuration = std::make_shared<Configuration>();
    auto notPcm = pcmFormat(16000, 1);
    notPcm.mFormatID = kAudioFormatSbc;
    expectRefused<SBCEncoder>({{}, notPcm, pcmFormat(22050, 1)}, configuration);

    auto lessThanAByte = pcmFormat(16000, 1);
    lessThanAByte.mBitsPerChannel = 7;
    EXPECT_DEATH(make(lessThanAByte, configuration), "Fatal error: Division by zero");
}

TEST_F(SBCEncoderTest, encodesAsAPlainLoopDoesInEveryModeWithEveryBitpool) {
    for (const auto mode : {Mode::mono, Mode::dual, Mode::stereo, Mode::jointStereo}) {
        const bool isPerChannel = mode == Mode::mono || mode == Mode::dual;
        for (const unsigned subbands : {4U, 8U}) {
            const unsigned largest = std::min((isPerChannel ? 16U : 32U) * subbands, 250U);
            for (unsigned bitpool = 2; bitpool <= largest; ++bitpool) {
                SCOPED_TRACE("mode " + std::to_string(static_cast<int>(mode)) + ", bitpool " +
                             std::to_string(bitpool));
                const bool isBig = bitpool % 2 == 1;
                const auto configuration = std::make_shared<Configuration>();
                configuration->freq = SBCCoding::Frequency::_48000;
                configuration->mode = mode;
                configuration->subband =
                    subbands == 8 ? SBCCoding::Subband::_8 : SBCCoding::Subband::_4;
                configuration->blocks = SBCCoding::Block::_12;
                configuration->endian =
                    isBig ? SBCCoding::Endianess::big : SBCCoding::Endianess::little;
                configuration->bitpool = static_cast<std::uint8_t>(bitpool);
                make(pcmFormat(48000, mode == Mode::mono ? 1 : 2, 16, isBig ? 6 : 4),
                     configuration);
                push(pcm_.first(1000));
                ASSERT_EQ(sink_->allBytes(), plainLoop(pcm_.first(1000)));
                EXPECT_EQ(node_->outDataFormat().mFramesPerPacket, 12 * subbands);
                EXPECT_EQ(node_->outDataFormat().mBytesPerPacket, configuration->frameLen());
                EXPECT_EQ((node_->outDataFormat().mFormatFlags & 2) != 0, isBig);
            }
        }
    }
}

}  // namespace
}  // namespace zav::test
