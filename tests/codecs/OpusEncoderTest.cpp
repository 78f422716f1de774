#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"

#include <limits>

#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/WrappedCodecs.hpp"

namespace zav::test {
namespace {

/// An encoder for 16 kHz mono, 1920 bytes to a packet.
class OpusEncoderTest : public NodeTest<OpusEncoder> {
 protected:
    static constexpr std::size_t kPcmSize = 1920;

    OpusEncoderTest() { make(pcmFormat(16000, 1)); }

    std::vector<Bytes> packets() const {
        std::vector<Bytes> all;
        for (const auto& chunk : sink_->chunks) {
            EXPECT_EQ(chunk.packetNum, 1U);
            EXPECT_FALSE(chunk.hasDescriptions);
            all.push_back(chunk.bytes);
        }
        return all;
    }

    DiagnosticsLines lines_;
    const Bytes pcmBytes_ = testPcm(5 * kPcmSize);
    const std::span<const std::byte> pcm_{pcmBytes_};
};

TEST_F(OpusEncoderTest, announcesItsFormat) {
    EXPECT_EQ(node_->outDataFormat(), opusFormat(16000, 1));
}

TEST_F(OpusEncoderTest, countsTheFramesOfAPacketAtTheRateOfTheMoment) {
    // In single precision. In double precision the last product is 59999.99.
    const std::vector<std::pair<double, std::int64_t>> frameCounts = {
        {8000, 480}, {12000, 720}, {16000, 960}, {24000, 1440}, {48000, 2880}, {999999.99, 60000}};
    for (const auto& [rate, frameCount] : frameCounts) {
        source_->setOutDataFormat(pcmFormat(rate, 2));
        EXPECT_EQ(node_->frameCountPerPkt(), frameCount);
        EXPECT_EQ(node_->inDataFormat(), pcmFormat(rate, 2));
    }
    for (const double rate : {1e30, -1e30, std::numeric_limits<double>::quiet_NaN(), 1e300}) {
        source_->setOutDataFormat(pcmFormat(rate, 1));
        EXPECT_DEATH(node_->frameCountPerPkt(), "Fatal error: Not enough bits");
    }
}

TEST_F(OpusEncoderTest, savesWhatDoesNotFillAPacket) {
    push({});
    EXPECT_EQ(node_->partialFrameBytes(), std::nullopt);
    push(pcm_.first(5000));
    EXPECT_EQ(packets().size(), 2U);
    EXPECT_EQ(savedSize(), 1160U);
    push(pcm_.subspan(5000, 1000));
    EXPECT_EQ(savedSize(), 240U);
    EXPECT_TRUE(packets() == opusLoopEncode(pcm_.first(6000), 16000, 1));

    // No line for the packet that began with saved bytes.
    const auto line = [&](std::size_t index) {
        return "Succeed opus encoding to " + std::to_string(packets()[index].size()) + " bytes";
    };
    EXPECT_EQ(lines_.take(), (std::vector{line(0), line(1)}));
}

TEST_F(OpusEncoderTest, givesTheSamePacketsForAnyCutThatLeavesBytesOver) {
    const auto expected = opusLoopEncode(pcm_, 16000, 1);
    // Some chunks have odd addresses. The shortest ones complete a packet only together.
    for (const std::size_t step : {11U, 1919U, 1921U, 5001U, 19199U}) {
        make(pcmFormat(16000, 1));
        pushInChunks(pcm_, step);
        EXPECT_TRUE(packets() == expected) << "chunks of " << step;
    }
}

// A chunk that ends on a packet boundary leaves the saved bytes, and the next chunk begins with
// them again. This is on purpose.
TEST_F(OpusEncoderTest, repeatsSavedBytesAfterAChunkThatEndsOnAPacketBoundary) {
    push(pcm_.first(5000));         // two packets, 1160 bytes saved
    push(pcm_.subspan(5000, 760));  // completes a packet
    EXPECT_EQ(packets().size(), 3U);
    EXPECT_EQ(savedSize(), 1160U);
    push(pcm_.subspan(5760, 760));
    EXPECT_EQ(savedSize(), 1160U);

    const Bytes encoded =
        joined({pcm_.first(5760), pcm_.subspan(3840, 1160), pcm_.subspan(5760, 760)});
    EXPECT_TRUE(packets() == opusLoopEncode(encoded, 16000, 1));
}

TEST_F(OpusEncoderTest, dropsSavedBytesAtFlowEndButKeepsTheCodec) {
    start();
    push(pcm_.first(kPcmSize + 100));
    end();
    EXPECT_EQ(node_->partialFrameBytes(), std::nullopt);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "end"}));
    push(pcm_.subspan(kPcmSize, kPcmSize));
    EXPECT_TRUE(packets() == opusLoopEncode(pcm_.first(2 * kPcmSize), 16000, 1));
}

TEST_F(OpusEncoderTest, encodesAsAPlainLoopDoesAtEveryRate) {
    for (const int rate : {8000, 12000, 16000, 24000, 48000}) {
        for (const unsigned channels : {1U, 2U}) {
            const Bytes pcm = testPcm(static_cast<std::size_t>(rate) / 2);
            const auto expected = opusLoopEncode(pcm, rate, static_cast<int>(channels));
            ASSERT_GE(expected.size(), 4U);
            make(pcmFormat(rate, channels));
            push(pcm);
            EXPECT_TRUE(packets() == expected) << rate << ' ' << channels;
            make(pcmFormat(rate, channels, 32, kAudioFormatFlagIsFloat));
            push(pcm);
            EXPECT_TRUE(packets() == expected) << "float, " << rate << ' ' << channels;
        }
    }
}

TEST_F(OpusEncoderTest, saysWhyItStops) {
    const std::vector<std::pair<int, std::string>> messages = {
        {-1, "Encoding failed: One or more invalid/out of range arguments"},
        {-2, "Encoding failed: Not enough bytes allocated in the buffer"},
        {-3, "Encoding failed: An internal error was detected"},
        {-4, "Encoding failed: The compressed data passed is corrupted"},
        {-5, "Encoding failed: Invalid/unsupported request number"},
        {-6, "An encoder or decoder structure is invalid or already freed"},
        {-7, "Encoding failed: Memory allocation has failed"},
        {0, "Encoding failed"},
        {-8, "Encoding failed"},
    };
    for (const auto& [result, message] : messages) {
        const auto pushWithRefusal = [&, refusal = result] {
            wrappedCodecs().opusEncode = refusal;
            push(pcm_);
        };
        EXPECT_DEATH(pushWithRefusal(), "^Fatal error: " + message + ": file OpusEncoder.cpp");
    }
    const auto makeWithRefusal = [&] {
        wrappedCodecs().opusCreate = -7;
        makeNode<OpusEncoder>(source_);
    };
    EXPECT_DEATH(makeWithRefusal(), "^Fatal error: Creating opus codec failed: file");

    // A changed format must not lead to a read outside the chunk.
    push(pcm_.first(1900));
    source_->setOutDataFormat(pcmFormat(8000, 1));
    EXPECT_DEATH(push(pcm_), "^Fatal error: The upstream's format has changed");
    source_->setOutDataFormat(pcmFormat(16000, 0));
    EXPECT_DEATH(push(pcm_), "^Fatal error: The upstream's format has changed");
    make(pcmFormat(24000, 1));
    sink_->onCall = [&](const std::string&) { source_->setOutDataFormat(pcmFormat(48000, 1)); };
    EXPECT_DEATH(push(pcm_), "^Fatal error: The upstream's format has changed");
}

TEST_F(OpusEncoderTest, refusesUnsuitableUpstreams) {
    expectRefused<OpusEncoder>({opusFormat(16000, 1), pcmFormat(44100, 1), pcmFormat(16000.5, 1),
                                pcmFormat(16000, 0), pcmFormat(16000, 3)});
}

}  // namespace
}  // namespace zav::test
