#include "ZAVAudioStreaming/codecs/OpusDecoder.hpp"

#include "tests/support/NodeTest.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/WrappedCodecs.hpp"

namespace zav::test {
namespace {

class OpusDecoderTest : public NodeTest<OpusDecoder> {
 protected:
    OpusDecoderTest() { make(opusFormat(16000, 1)); }

    /// Pushes packets as one chunk with their descriptions.
    void pushPackets(std::span<const Bytes> packets) {
        Bytes chunk;
        std::vector<AudioStreamPacketDescription> descriptions;
        for (const Bytes& packet : packets) {
            descriptions.push_back({static_cast<std::int64_t>(chunk.size()), 0,
                                    static_cast<std::uint32_t>(packet.size())});
            chunk = joined({chunk, packet});
        }
        push(chunk, packets.size(), descriptions.data());
    }
    void pushPacket(const Bytes& packet) { pushPackets(std::span(&packet, 1)); }

    const Bytes pcm_ = testPcm(2 * 960);
    const std::vector<Bytes> packets_ = opusLoopEncode(pcm_, 16000, 1);
};

TEST_F(OpusDecoderTest, decodesAsAPlainLoopDoesAtEveryRate) {
    for (const int rate : {8000, 12000, 16000, 24000, 48000}) {
        for (const unsigned channels : {1U, 2U}) {
            const auto pcm = testPcm(static_cast<std::size_t>(rate) * channels * 3 / 10);
            const auto packets = opusLoopEncode(pcm, rate, static_cast<int>(channels));
            ASSERT_EQ(packets.size(), 5U);
            make(opusFormat(rate, channels));
            EXPECT_EQ(node_->outDataFormat(), pcmFormat(rate, channels));
            start();
            push({}, 0);
            pushPackets(std::span(packets).first(3));
            push(packets[3], 1);
            push(packets[4], 1);
            end();
            EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "audio", "end"}));
            const auto frames = static_cast<unsigned>(rate * 60 / 1000);
            EXPECT_EQ(sink_->packetCounts(),
                      (std::vector<std::uint64_t>{0, 3 * frames, frames, frames}));
            EXPECT_TRUE(sink_->chunks[0].bytes.empty());
            EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
            EXPECT_EQ(sink_->allBytes(), opusLoopDecode(packets, rate, static_cast<int>(channels)));
        }
    }
}

TEST_F(OpusDecoderTest, cutsAChunkWithoutDescriptionsIntoEqualParts) {
    const auto packets = opusLoopEncode(pcm_, 16000, 1, true);
    ASSERT_EQ(packets[0].size(), packets[1].size());
    push(joined({packets[0], packets[1], bytesFrom({1})}), 2);  // the last byte is ignored
    EXPECT_EQ(sink_->allBytes(), opusLoopDecode(packets, 16000, 1));
}

TEST_F(OpusDecoderTest, followsDescriptionsInAnyOrder) {
    const auto size = static_cast<std::uint32_t>(packets_[0].size());
    const AudioStreamPacketDescription descriptions[] = {
        {size, 7, static_cast<std::uint32_t>(packets_[1].size())},  // the 7 is not read
        {0, 0, size}};
    push(joined({packets_[0], packets_[1]}), 2, descriptions);
    EXPECT_EQ(sink_->allBytes(), opusLoopDecode(std::vector{packets_[1], packets_[0]}, 16000, 1));
}

TEST_F(OpusDecoderTest, saysWhyItStops) {
    EXPECT_DEATH(pushPacket(bytesFrom({0xFF, 0xFF})),
                 "^Fatal error: Encoding failed: The compressed data passed is corrupted: file "
                 "OpusDecoder.cpp");
    Bytes twice = packets_[0];
    twice[0] |= std::byte{3};  // a packet of frames whose count follows: two of 60 ms
    twice.insert(twice.begin() + 1, std::byte{2});
    EXPECT_DEATH(pushPacket(twice), "^Fatal error: Encoding failed: ");
    const auto makeWithRefusal = [&] {
        wrappedCodecs().opusCreate = -7;
        makeNode<OpusDecoder>(source_);
    };
    EXPECT_DEATH(makeWithRefusal(), "^Fatal error: Creating opus codec failed: file");

    const std::byte byte{};
    EXPECT_DEATH(node_->receiveAudio(&byte, 1, std::uint64_t{1} << 60U, nullptr),
                 "^Fatal error: Arithmetic overflow");
    EXPECT_DEATH(node_->receiveAudio(&byte, std::uint64_t{1} << 31U, 1, nullptr),
                 "^Fatal error: Not enough bits");
}

// A changed format must not lead to a write outside the block of PCM.
TEST_F(OpusDecoderTest, stopsWhenAFormatHasChanged) {
    make(opusFormat(16000, 2));
    source_->setOutDataFormat(opusFormat(16000, 0));
    EXPECT_DEATH(pushPackets(packets_), "^Fatal error: Division by zero");
    source_->setOutDataFormat(opusFormat(16000, 200));
    EXPECT_DEATH(pushPackets(packets_), "^Fatal error: The upstream's format has changed");
    source_->setOutDataFormat(opusFormat(16000, 2));
    node_->setOutDataFormat(pcmFormat(16000, 1));
    EXPECT_DEATH(pushPackets(packets_), "^Fatal error: The upstream's format has changed");
}

TEST_F(OpusDecoderTest, refusesUnsuitableUpstreams) {
    expectRefused<OpusDecoder>(
        {pcmFormat(16000, 1), opusFormat(44100, 1), opusFormat(16000, 0), opusFormat(16000, 3)});
}

}  // namespace
}  // namespace zav::test
