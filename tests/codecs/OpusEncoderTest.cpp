#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/WrappedOpus.hpp"

namespace zav::test {
namespace {

std::vector<std::string> diagnosticsLines;

/// An encoder for 16 kHz mono, 1920 bytes to a packet.
class OpusEncoderTest : public testing::Test {
 protected:
    static constexpr std::size_t kPcmSize = 1920;

    OpusEncoderTest() {
        diagnosticsLines.clear();
        setDiagnosticsHandler([](std::string_view line) { diagnosticsLines.emplace_back(line); });
        source_->setOutDataFormat(pcmFormat(16000, 1));
        encoder_ = makeNode<OpusEncoder>(source_);
        sink_ = makeNode<RecordingSink>(encoder_);
    }
    ~OpusEncoderTest() override { setDiagnosticsHandler(nullptr); }

    void push(std::span<const std::byte> bytes) {
        source_->downstreams().receiveAudio(bytes.data(), bytes.size(), 12345, nullptr);
    }

    std::size_t savedSize() const {
        return encoder_->partialFrameBytes() ? encoder_->partialFrameBytes()->size() : 0;
    }

    std::vector<Bytes> packets() const {
        std::vector<Bytes> all;
        for (const auto& chunk : sink_->chunks) {
            EXPECT_EQ(chunk.packetNum, 1U);
            EXPECT_FALSE(chunk.hasDescriptions);
            all.push_back(chunk.bytes);
        }
        return all;
    }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<OpusEncoder> encoder_;
    std::shared_ptr<RecordingSink> sink_;
    const Bytes pcm_ = testPcm(5 * kPcmSize);
};

TEST_F(OpusEncoderTest, announcesItsFormatAndPacketDuration) {
    EXPECT_EQ(encoder_->outDataFormat(), opusFormat(16000, 1));
    const std::vector<std::pair<double, std::int64_t>> frameCounts = {
        {8000, 480}, {12000, 720}, {16000, 960}, {24000, 1440}, {48000, 2880}};
    for (const auto& [rate, frameCount] : frameCounts) {
        source_->setOutDataFormat(pcmFormat(rate, 2));
        EXPECT_EQ(encoder_->frameCountPerPkt(), frameCount);
        EXPECT_EQ(encoder_->inDataFormat(), pcmFormat(rate, 2));
    }
    // Single precision: as doubles the product is 59999.99.
    source_->setOutDataFormat(pcmFormat(999999.99, 1));
    EXPECT_EQ(encoder_->frameCountPerPkt(), 60000);
    for (const double rate : {1e30, -1e30, std::numeric_limits<double>::quiet_NaN(), 1e300}) {
        source_->setOutDataFormat(pcmFormat(rate, 1));
        EXPECT_DEATH(encoder_->frameCountPerPkt(), "Fatal error: Not enough bits");
    }
}

TEST_F(OpusEncoderTest, savesWhatDoesNotFillAPacket) {
    const std::span pcm(pcm_);
    push({});
    EXPECT_EQ(encoder_->partialFrameBytes(), std::nullopt);
    push(pcm.first(5000));
    EXPECT_EQ(packets().size(), 2U);
    EXPECT_EQ(savedSize(), 1160U);
    push(pcm.subspan(5000, 1000));
    EXPECT_EQ(savedSize(), 240U);
    EXPECT_TRUE(packets() == opusLoopEncode(pcm.first(6000), 16000, 1));

    // No line for the packet that began with saved bytes.
    std::vector<std::string> expected;
    for (const std::size_t i : {0U, 1U}) {
        expected.push_back("Succeed opus encoding to " + std::to_string(packets()[i].size()) +
                           " bytes");
    }
    EXPECT_EQ(diagnosticsLines, expected);
}

TEST_F(OpusEncoderTest, givesTheSamePacketsForAnyCutThatLeavesBytesOver) {
    const auto expected = opusLoopEncode(pcm_, 16000, 1);
    // Also chunks at odd addresses, and so short that the saved packet waits for several.
    for (const std::size_t step : {11U, 1919U, 1921U, 5001U, 19199U}) {
        encoder_ = makeNode<OpusEncoder>(source_);
        sink_ = makeNode<RecordingSink>(encoder_);
        for (std::size_t fed = 0; fed < pcm_.size(); fed += step) {
            encoder_->receiveAudio(&pcm_[fed], std::min(step, pcm_.size() - fed), 0, nullptr);
        }
        EXPECT_TRUE(packets() == expected) << "chunks of " << step;
    }
}

// Bytes stay saved through a chunk that ends on a packet boundary, and begin the next chunk again.
// Streams that exist depend on it.
TEST_F(OpusEncoderTest, repeatsSavedBytesAfterAChunkThatEndsOnAPacketBoundary) {
    const std::span pcm(pcm_);
    push(pcm.first(5000));         // two packets, 1160 bytes saved
    push(pcm.subspan(5000, 760));  // completes a packet
    EXPECT_EQ(packets().size(), 3U);
    EXPECT_EQ(savedSize(), 1160U);
    push(pcm.subspan(5760, 760));
    EXPECT_EQ(savedSize(), 1160U);

    Bytes encoded(pcm.begin(), pcm.begin() + 5760);
    encoded.insert(encoded.end(), pcm.begin() + 3840, pcm.begin() + 5000);
    encoded.insert(encoded.end(), pcm.begin() + 5760, pcm.begin() + 6520);
    EXPECT_TRUE(packets() == opusLoopEncode(encoded, 16000, 1));
}

TEST_F(OpusEncoderTest, dropsSavedBytesAtFlowEndButKeepsTheCodec) {
    const std::span pcm(pcm_);
    source_->downstreams().onAudioStreamFlowStart();
    push(pcm.first(kPcmSize + 100));
    source_->downstreams().onAudioStreamFlowEnd();
    EXPECT_EQ(encoder_->partialFrameBytes(), std::nullopt);
    EXPECT_EQ(sink_->calls, (std::vector<std::string>{"start", "audio", "end"}));
    push(pcm.subspan(kPcmSize, kPcmSize));
    EXPECT_TRUE(packets() == opusLoopEncode(pcm.first(2 * kPcmSize), 16000, 1));
}

TEST_F(OpusEncoderTest, passesEachPacketToAllTargetsBeforeTheNext) {
    std::vector<int> order;
    const auto second = makeNode<RecordingSink>(encoder_);
    sink_->onCall = [&](const std::string&) { order.push_back(1); };
    second->onCall = [&](const std::string&) { order.push_back(2); };
    encoder_->addStreamTarget(sink_);
    push(std::span(pcm_).first(2 * kPcmSize));
    EXPECT_EQ(order, (std::vector{1, 2, 1, 1, 2, 1}));
}

TEST_F(OpusEncoderTest, encodesAsAPlainLoopDoesAtEveryRate) {
    for (const int rate : {8000, 12000, 16000, 24000, 48000}) {
        for (const int channels : {1, 2}) {
            const Bytes pcm = testPcm(static_cast<std::size_t>(rate) / 2);
            source_->setOutDataFormat(pcmFormat(rate, static_cast<std::uint32_t>(channels)));
            encoder_ = makeNode<OpusEncoder>(source_);
            sink_ = makeNode<RecordingSink>(encoder_);
            encoder_->receiveAudio(pcm.data(), pcm.size(), 0, nullptr);
            EXPECT_GE(packets().size(), 4U);
            EXPECT_TRUE(packets() == opusLoopEncode(pcm, rate, channels))
                << rate << ' ' << channels;
        }
    }
}

TEST_F(OpusEncoderTest, takesTheBytesOfAnySampleTypeAs16Bits) {
    source_->setOutDataFormat(pcmFormat(16000, 1, 32, kAudioFormatFlagIsFloat));
    encoder_ = makeNode<OpusEncoder>(source_);
    sink_ = makeNode<RecordingSink>(encoder_);
    encoder_->receiveAudio(pcm_.data(), 2 * kPcmSize, 0, nullptr);
    EXPECT_TRUE(packets() == opusLoopEncode(std::span(pcm_).first(2 * kPcmSize), 16000, 1));
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
            opusRefusals().encode = refusal;
            push(pcm_);
        };
        EXPECT_DEATH(pushWithRefusal(), "^Fatal error: " + message + ": file OpusEncoder.cpp");
    }
    const auto makeWithRefusal = [&] {
        opusRefusals().create = -7;
        makeNode<OpusEncoder>(source_);
    };
    EXPECT_DEATH(makeWithRefusal(), "^Fatal error: Creating opus codec failed: file");

    // What the upstream turns into must not lead out of its chunks.
    push(std::span(pcm_).first(1900));
    source_->setOutDataFormat(pcmFormat(8000, 1));
    EXPECT_DEATH(push(pcm_), "^Fatal error: The upstream's format has changed");
    source_->setOutDataFormat(pcmFormat(16000, 0));
    EXPECT_DEATH(push(pcm_), "^Fatal error: The upstream's format has changed");
    source_->setOutDataFormat(pcmFormat(24000, 1));
    encoder_ = makeNode<OpusEncoder>(source_);
    sink_ = makeNode<RecordingSink>(encoder_);
    sink_->onCall = [&](const std::string&) { source_->setOutDataFormat(pcmFormat(48000, 1)); };
    EXPECT_DEATH(encoder_->receiveAudio(pcm_.data(), pcm_.size(), 0, nullptr),
                 "^Fatal error: The upstream's format has changed");
}

TEST(OpusEncoder, refusesUnsuitableUpstreams) {
    const auto source = makeNode<PeripheralSource>();
    const std::vector<AudioStreamBasicDescription> unsuitable = {{},
                                                                 opusFormat(16000, 1),
                                                                 pcmFormat(44100, 1),
                                                                 pcmFormat(16000.5, 1),
                                                                 pcmFormat(16000, 0),
                                                                 pcmFormat(16000, 3)};
    for (const auto& format : unsuitable) {
        source->setOutDataFormat(format);
        EXPECT_THROW(makeNode<OpusEncoder>(source), AudioStreamError);
    }
    EXPECT_TRUE(source->downstreams().empty());
}

TEST(OpusError, comparesByItsCase) {
    EXPECT_EQ(OpusCoding::OpusError::opus(), OpusCoding::OpusError::opus());
    EXPECT_EQ(std::hash<OpusCoding::OpusError>{}(OpusCoding::OpusError::opus()),
              std::hash<OpusCoding::OpusError>{}(OpusCoding::OpusError::opus()));
}

}  // namespace
}  // namespace zav::test
