#include "ZAVAudioStreaming/codecs/OpusDecoder.hpp"

#include <gtest/gtest.h>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/WrappedOpus.hpp"

namespace zav::test {
namespace {

Bytes joined(std::span<const Bytes> packets) {
    Bytes all;
    for (const Bytes& packet : packets) {
        all.insert(all.end(), packet.begin(), packet.end());
    }
    return all;
}

std::vector<AudioStreamPacketDescription> describe(std::span<const Bytes> packets) {
    std::vector<AudioStreamPacketDescription> descriptions;
    std::int64_t start = 0;
    for (const Bytes& packet : packets) {
        descriptions.push_back({start, 0, static_cast<std::uint32_t>(packet.size())});
        start += static_cast<std::int64_t>(packet.size());
    }
    return descriptions;
}

/// Packets of a shorter duration than ours, as an accessory of another make sends them.
std::vector<Bytes> encodeWithDuration(int rate, int frameCount, std::size_t packetCount,
                                      int bitRate = OPUS_AUTO) {
    const std::unique_ptr<::OpusEncoder, decltype(&opus_encoder_destroy)> encoder(
        opus_encoder_create(rate, 1, OPUS_APPLICATION_AUDIO, nullptr), opus_encoder_destroy);
    opus_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(bitRate));
    opus_encoder_ctl(encoder.get(), OPUS_SET_VBR(bitRate == OPUS_AUTO ? 1 : 0));
    const Bytes pcm = testPcm(static_cast<std::size_t>(frameCount) * packetCount);
    std::vector<Bytes> packets;
    for (std::size_t i = 0; i < packetCount; ++i) {
        const auto* const input = reinterpret_cast<const opus_int16*>(pcm.data()) +
                                  i * static_cast<std::size_t>(frameCount);
        Bytes packet(4000);
        const int size = opus_encode(encoder.get(), input, frameCount,
                                     reinterpret_cast<unsigned char*>(packet.data()), 4000);
        packet.resize(static_cast<std::size_t>(size));
        packets.push_back(packet);
    }
    return packets;
}

class OpusDecoderTest : public testing::Test {
 protected:
    void make(double rate, std::uint32_t channels) {
        source_->setOutDataFormat(opusFormat(rate, channels));
        decoder_ = makeNode<OpusDecoder>(source_);
        sink_ = makeNode<RecordingSink>(decoder_);
    }

    void push(std::span<const Bytes> packets) {
        const Bytes chunk = joined(packets);
        const auto descriptions = describe(packets);
        decoder_->receiveAudio(chunk.data(), chunk.size(), packets.size(), descriptions.data());
    }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<OpusDecoder> decoder_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(OpusDecoderTest, decodesAsAPlainLoopDoesAtEveryRate) {
    for (const int rate : {8000, 12000, 16000, 24000, 48000}) {
        for (const int channels : {1, 2}) {
            const auto pcm = testPcm(static_cast<std::size_t>(rate * channels) * 3 / 10);
            const auto packets = opusLoopEncode(pcm, rate, channels);
            ASSERT_EQ(packets.size(), 5U);
            make(rate, static_cast<std::uint32_t>(channels));
            EXPECT_EQ(decoder_->outDataFormat(),
                      pcmFormat(rate, static_cast<std::uint32_t>(channels)));
            push(std::span(packets).first(3));
            for (const Bytes& packet : std::span(packets).subspan(3)) {
                decoder_->receiveAudio(packet.data(), packet.size(), 1, nullptr);
            }
            ASSERT_EQ(sink_->chunks.size(), 3U);
            EXPECT_EQ(sink_->chunks[0].packetNum, static_cast<unsigned>(3 * rate * 60 / 1000));
            EXPECT_FALSE(sink_->chunks[0].hasDescriptions);
            EXPECT_EQ(sink_->allBytes(), opusLoopDecode(packets, rate, channels));
        }
    }
}

TEST_F(OpusDecoderTest, passesOnWhatShorterPacketsGive) {
    make(16000, 1);
    push(encodeWithDuration(16000, 320, 3));
    EXPECT_EQ(sink_->chunks[0].bytes.size(), 1920U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 960U);
}

TEST_F(OpusDecoderTest, cutsAChunkWithoutDescriptionsIntoEqualParts) {
    const auto packets = encodeWithDuration(16000, 960, 3, 16000);
    ASSERT_EQ(packets[0].size(), packets[2].size());
    Bytes chunk = joined(packets);
    chunk.push_back(std::byte{1});  // never looked at
    make(16000, 1);
    decoder_->receiveAudio(chunk.data(), chunk.size(), 3, nullptr);
    EXPECT_EQ(sink_->allBytes(), opusLoopDecode(packets, 16000, 1));
}

TEST_F(OpusDecoderTest, followsDescriptionsInAnyOrder) {
    const auto packets = encodeWithDuration(16000, 960, 2);
    const Bytes chunk = joined(packets);
    auto descriptions = describe(packets);
    std::swap(descriptions[0], descriptions[1]);
    descriptions[0].mVariableFramesInPacket = 7;  // nobody reads it
    make(16000, 1);
    decoder_->receiveAudio(chunk.data(), chunk.size(), 2, descriptions.data());
    EXPECT_EQ(sink_->allBytes(), opusLoopDecode(std::vector{packets[1], packets[0]}, 16000, 1));
}

TEST_F(OpusDecoderTest, passesOnAChunkWithoutPackets) {
    make(48000, 2);
    decoder_->onAudioStreamFlowStart();
    decoder_->receiveAudio(nullptr, 0, 0, nullptr);
    decoder_->onAudioStreamFlowEnd();
    EXPECT_EQ(sink_->calls, (std::vector<std::string>{"start", "audio", "end"}));
    EXPECT_EQ(sink_->chunks[0].packetNum, 0U);
    EXPECT_TRUE(sink_->chunks[0].bytes.empty());
}

TEST_F(OpusDecoderTest, saysWhyItStops) {
    make(16000, 1);
    const Bytes corrupt = {std::byte{0xFF}, std::byte{0xFF}};
    const auto pushOne = [&](const Bytes& packet) { push(std::span(&packet, 1)); };
    EXPECT_DEATH(pushOne(corrupt),
                 "^Fatal error: Encoding failed: The compressed data passed is corrupted: file "
                 "OpusDecoder.cpp");
    Bytes twice = encodeWithDuration(16000, 960, 1)[0];
    twice[0] |= std::byte{3};  // a packet of frames whose count follows: two of 60 ms
    twice.insert(twice.begin() + 1, std::byte{2});
    EXPECT_DEATH(pushOne(twice), "^Fatal error: Encoding failed: ");
    const auto makeWithRefusal = [&] {
        opusRefusals().create = -7;
        makeNode<OpusDecoder>(source_);
    };
    EXPECT_DEATH(makeWithRefusal(), "^Fatal error: Creating opus codec failed: file");
    const auto pushWithRefusal = [&] {
        opusRefusals().decode = -6;
        pushOne(corrupt);
    };
    EXPECT_DEATH(pushWithRefusal(),
                 "^Fatal error: An encoder or decoder structure is invalid or already freed: file");

    const std::byte byte{};
    EXPECT_DEATH(decoder_->receiveAudio(&byte, 1, std::uint64_t{1} << 60U, nullptr),
                 "^Fatal error: Arithmetic overflow");
    EXPECT_DEATH(decoder_->receiveAudio(&byte, std::uint64_t{1} << 31U, 1, nullptr),
                 "^Fatal error: Not enough bits");
}

// What the formats turn into must not lead out of the block of PCM.
TEST_F(OpusDecoderTest, stopsWhenAFormatHasChanged) {
    const auto packets = encodeWithDuration(16000, 960, 2);
    make(16000, 2);
    source_->setOutDataFormat(opusFormat(16000, 0));
    EXPECT_DEATH(push(packets), "^Fatal error: Division by zero");
    source_->setOutDataFormat(opusFormat(16000, 200));
    EXPECT_DEATH(push(packets), "^Fatal error: The upstream's format has changed");
    source_->setOutDataFormat(opusFormat(16000, 2));
    decoder_->setOutDataFormat(pcmFormat(16000, 1));
    EXPECT_DEATH(push(packets), "^Fatal error: The upstream's format has changed");
}

TEST(OpusDecoder, refusesUnsuitableUpstreams) {
    const auto source = makeNode<PeripheralSource>();
    const std::vector<AudioStreamBasicDescription> unsuitable = {
        {}, pcmFormat(16000, 1), opusFormat(44100, 1), opusFormat(16000, 0), opusFormat(16000, 3)};
    for (const auto& format : unsuitable) {
        source->setOutDataFormat(format);
        EXPECT_THROW(makeNode<OpusDecoder>(source), AudioStreamError);
    }
    EXPECT_TRUE(source->downstreams().empty());
}

}  // namespace
}  // namespace zav::test
