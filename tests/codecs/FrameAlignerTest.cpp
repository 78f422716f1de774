#include "ZAVAudioStreaming/codecs/FrameAligner.hpp"

#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "tests/support/NodeTest.hpp"

namespace zav::test {
namespace {

using AtFlowEnd = FrameAligner::AtFlowEnd;

class FrameAlignerTest : public NodeTest<FrameAligner> {};

TEST_F(FrameAlignerTest, passesWholePiecesOnAsOneChunk) {
    make(pcmFormat(16000, 1), 256U);
    const Bytes pcm = testBytes(2000);
    auto pushNext = [this, rest = std::span(pcm)](std::size_t size) mutable {
        push(rest.first(size));
        rest = rest.subspan(size);
    };
    pushNext(100);
    pushNext(0);
    pushNext(155);
    EXPECT_TRUE(sink_->calls.empty());
    pushNext(1);    // 256
    pushNext(700);  // 512 of 700
    EXPECT_EQ(node_->heldByteCount(), 188U);
    pushNext(100);  // 256 of 288
    pushNext(736);  // all of 768
    EXPECT_EQ(node_->heldByteCount(), 0U);

    EXPECT_EQ(sink_->packetCounts(), (std::vector<std::uint64_t>{128, 256, 128, 384}));
    EXPECT_EQ(sink_->chunks[1].bytes.size(), 512U);
    EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
    EXPECT_EQ(sink_->allBytes(), Bytes(pcm.begin(), pcm.begin() + 1792));

    // Whole pieces are not copied.
    push(std::span(pcm).subspan(1, 512));
    EXPECT_EQ(sink_->chunks.back().address, &pcm[1]);
    push(std::span(pcm).subspan(2, 512 + 10));
    EXPECT_EQ(sink_->chunks.back().address, &pcm[2]);
}

TEST_F(FrameAlignerTest, dropsOrPadsTheRestAtFlowEnd) {
    const Bytes pcm = testBytes(300);
    for (const auto atFlowEnd : {AtFlowEnd::dropRest, AtFlowEnd::padWithSilence}) {
        make(pcmFormat(16000, 1), 256U, atFlowEnd);
        start();
        push(pcm);
        end();
        EXPECT_EQ(node_->heldByteCount(), 0U);
        Bytes expected(pcm.begin(), pcm.begin() + 256);
        std::vector<std::string> calls = {"start", "audio", "end", "end"};
        if (atFlowEnd == AtFlowEnd::padWithSilence) {
            expected = pcm;
            expected.resize(512);
            calls.insert(calls.begin() + 1, "audio");
        }
        EXPECT_EQ(sink_->allBytes(), expected);
        end();  // nothing is left to pad
        EXPECT_EQ(sink_->calls, calls);
    }
}

TEST_F(FrameAlignerTest, padsWithTheSilenceOfTheFormat) {
    // One byte was received, and 11 bytes of silence follow it: 8 stands for 0x80, x for the rest.
    const auto padded = [&](std::uint32_t channels, std::uint32_t bits, std::uint32_t flags) {
        make(pcmFormat(16000, channels, bits, flags), 12U, AtFlowEnd::padWithSilence);
        push(Bytes{std::byte{0x11}});
        end();
        std::string text;
        for (const std::byte byte : sink_->allBytes()) {
            text += byte == std::byte{0x80} ? '8' : byte == std::byte{0} ? '0' : 'x';
        }
        return text;
    };
    EXPECT_EQ(padded(1, 16, kAudioFormatFlagIsSignedInteger), "x00000000000");
    EXPECT_EQ(padded(1, 32, kAudioFormatFlagIsFloat), "x00000000000");
    EXPECT_EQ(padded(2, 8, 0), "x88888888888");
    EXPECT_EQ(padded(1, 16, 0), "x80808080808");
    EXPECT_EQ(padded(2, 16, kAudioFormatFlagIsBigEndian), "x08080808080");
    EXPECT_EQ(padded(1, 24, 0), "x08008008008");
    EXPECT_EQ(padded(1, 32, kAudioFormatFlagIsBigEndian), "x00080008000");
}

TEST_F(FrameAlignerTest, refusesWhatItCannotAlign) {
    auto twelveBits = pcmFormat(16000, 2, 16, 0);
    twelveBits.mBitsPerChannel = 12;
    auto aLaw = pcmFormat(8000, 1, 8);
    aLaw.mFormatID = kAudioFormatALaw;
    expectRefused<FrameAligner>({opusFormat(16000, 1), aLaw, twelveBits, pcmFormat(16000, 0)},
                                256U);
    expectRefused<FrameAligner>({pcmFormat(16000, 2)}, 0U);
    expectRefused<FrameAligner>({pcmFormat(16000, 2)}, 258U);
}

TEST_F(FrameAlignerTest, knowsTheSizesOfTheEncodersFrames) {
    SBCCoding::SBCConfiguration stereo;
    stereo.mode = SBCCoding::ChannelMode::stereo;
    stereo.subband = SBCCoding::Subband::_4;
    EXPECT_EQ(FrameAligner::bytesPerSbcFrame(stereo), 16U * 4U * 2U * 2U);
    EXPECT_EQ(FrameAligner::bytesPerOpusPacket(pcmFormat(8000, 1)), 960U);
    EXPECT_EQ(FrameAligner::bytesPerOpusPacket(pcmFormat(48000, 2)), 11520U);
}

TEST_F(FrameAlignerTest, hasTheFormatOfItsUpstream) {
    make(pcmFormat(16000, 1), 256U);
    EXPECT_EQ(node_->outDataFormat(), pcmFormat(16000, 1));
}

}  // namespace
}  // namespace zav::test
