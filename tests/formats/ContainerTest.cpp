// The two container formats as a whole: their pages in docs, files cut anywhere, and which nodes
// fit together.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ZAVAudioStreaming/codecs/OpusDecoder.hpp"
#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp"
#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"
#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"
#include "ZAVAudioStreaming/sources/ZAVSbcFileSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

constexpr std::uint32_t kDefaultSbcFlags = 0x00200B00;

AudioStreamBasicDescription sbcFormatWith16Bits(std::uint32_t flags) {
    auto format = sbcFormat(16000, 1, flags, 72);
    format.mBitsPerChannel = 16;
    return format;
}

template <class Call>
void expectInvalidFormat(Call call) {
    try {
        call();
        ADD_FAILURE();
    } catch (const AudioFileError& error) {
        EXPECT_EQ(error, AudioFileError::invalidFormat());
    }
}

/// The bytes of the hex dump on a page of the documentation.
Bytes exampleOf(const std::string& page) {
    std::ifstream file(std::string(ZAV_DOCS) + "/" + page);
    Bytes bytes;
    bool isExample = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("```")) {
            isExample = line == "```hex";
        } else if (isExample) {
            std::istringstream digits(line.substr(0, line.find('|')));
            std::string offset;
            digits >> offset;
            EXPECT_EQ(std::stoul(offset, nullptr, 16), bytes.size()) << page;
            for (std::string pair; digits >> pair;) {
                bytes.push_back(static_cast<std::byte>(std::stoul(pair, nullptr, 16)));
            }
        }
    }
    return bytes;
}

TEST(Container, isWrittenAsItsPageSays) {
    const TemporaryFolder folder;
    const auto source = makeNode<PeripheralSource>();

    source->setOutDataFormat(opusFormat(16000, 1));
    makeNode<ZAVOpusFileSink>(source, folder / "example.zopus");
    const Bytes packet = {std::byte{0x58}, std::byte{0x07}, std::byte{0xC9}, std::byte{0x72},
                          std::byte{0x1F}};
    source->downstreams().onAudioStreamFlowStart();
    source->downstreams().receiveAudio(packet.data(), packet.size(), 1, nullptr);
    source->downstreams().receiveAudio(packet.data(), 0, 1, nullptr);
    EXPECT_EQ(readFile(folder / "example.zopus"), exampleOf("opus-container.md"));

    const auto sbcSource = makeNode<PeripheralSource>();
    sbcSource->setOutDataFormat(sbcFormatWith16Bits(kDefaultSbcFlags));
    makeNode<ZAVSbcFileSink>(sbcSource, folder / "example.zsbc");
    const Bytes frames = {std::byte{0x9C}, std::byte{0x3D}};
    sbcSource->downstreams().onAudioStreamFlowStart();
    sbcSource->downstreams().receiveAudio(frames.data(), frames.size(), 1, nullptr);
    EXPECT_EQ(readFile(folder / "example.zsbc"), exampleOf("sbc-container.md"));
}

// What a cut file must come to, worked out from the layout alone.
TEST(Container, endsWellWhereverAnOpusFileIsCut) {
    const TemporaryFolder folder;
    const std::vector<std::size_t> lengths = {5, 0, 9, 3};
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(opusFormat(48000, 2));
    makeNode<ZAVOpusFileSink>(source, folder / "whole.zopus");
    source->downstreams().onAudioStreamFlowStart();
    for (const std::size_t length : lengths) {
        source->downstreams().receiveAudio(testBytes(length).data(), length, 1, nullptr);
    }
    source->downstreams().onAudioStreamFlowEnd();
    const Bytes whole = readFile(folder / "whole.zopus");
    ASSERT_EQ(whole.size(), 48 + 4 * 8 + 17U);

    const auto readAll = [&] {
        const auto opusSource = makeNode<ZAVOpusFileSource>(folder / "cut.zopus");
        const auto sink = makeNode<RecordingSink>(opusSource);
        try {
            for (;;) {
                opusSource->readPackets(3);
            }
        } catch (const AudioFileError& error) {
            EXPECT_EQ(error, AudioFileError::noMoreData());
        }
        return sink;
    };
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        writeFile(folder / "cut.zopus", std::span(whole).first(cut));
        if (cut < 48) {
            expectInvalidFormat([&] { makeNode<ZAVOpusFileSource>(folder / "cut.zopus"); });
            continue;
        }
        std::size_t end = 48;
        std::uint64_t packets = 0;
        while (packets < lengths.size() && end + 8 + lengths[packets] <= cut) {
            end += 8 + lengths[packets++];
        }
        if (cut - end >= 8) {
            EXPECT_DEATH(
                readAll(),
                "^Fatal error: Reading the packet length field from opus file failed: file")
                << cut;
            continue;
        }
        const auto sink = readAll();
        std::uint64_t delivered = 0;
        for (const auto& chunk : sink->chunks) {
            delivered += chunk.packetNum;
        }
        EXPECT_EQ(delivered, packets) << cut;
        // A multiple of what is asked for ends without a flow end.
        EXPECT_EQ(sink->calls.back() == "end", packets % 3 != 0) << cut;
    }
}

TEST(Container, isRefusedWhereverAnSbcFileIsCut) {
    const TemporaryFolder folder;
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(sbcFormatWith16Bits(kDefaultSbcFlags));
    makeNode<ZAVSbcFileSink>(source, folder / "whole.zsbc");
    source->downstreams().onAudioStreamFlowStart();
    source->downstreams().receiveAudio(testBytes(72).data(), 72, 1, nullptr);
    source->downstreams().onAudioStreamFlowEnd();
    const Bytes whole = readFile(folder / "whole.zsbc");
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        writeFile(folder / "cut.zsbc", std::span(whole).first(cut));
        expectInvalidFormat([&] { makeNode<ZAVSbcFileSource>(folder / "cut.zsbc"); });
    }
}

TEST(Container, keepsOpusFromTheEncoderToTheDecoder) {
    const TemporaryFolder folder;
    setDiagnosticsHandler([](std::string_view) {});
    for (const int rate : {8000, 16000, 48000}) {
        for (const int channels : {1, 2}) {
            const auto pcm = testPcm(static_cast<std::size_t>(rate * channels));
            const auto path = folder / "stream.zopus";
            const auto source = makeNode<PeripheralSource>();
            source->setOutDataFormat(pcmFormat(rate, static_cast<std::uint32_t>(channels)));
            const auto encoder = makeNode<OpusEncoder>(source);
            makeNode<ZAVOpusFileSink>(encoder, path);
            source->downstreams().onAudioStreamFlowStart();
            source->downstreams().receiveAudio(pcm.data(), pcm.size(), 0, nullptr);
            source->downstreams().onAudioStreamFlowEnd();

            const auto packets = opusLoopEncode(pcm, rate, channels);
            const auto file = makeNode<ZAVOpusFileSource>(path);
            const auto kept = makeNode<RecordingSink>(file);
            const auto decoder = makeNode<OpusDecoder>(file);
            const auto sink = makeNode<RecordingSink>(decoder);
            EXPECT_EQ(file->outDataFormat(), encoder->outDataFormat());
            file->readPackets(1000);
            ASSERT_EQ(kept->chunks[0].packetNum, packets.size());
            for (std::size_t i = 0; i < packets.size(); ++i) {
                const auto place = kept->chunks[0].descriptions[i];
                const auto packet =
                    std::span(kept->chunks[0].bytes)
                        .subspan(static_cast<std::size_t>(place.mStartOffset), place.mDataByteSize);
                EXPECT_TRUE(std::ranges::equal(packet, packets[i])) << i;
            }
            EXPECT_EQ(sink->allBytes(), opusLoopDecode(packets, rate, channels));
        }
    }
    setDiagnosticsHandler(nullptr);
}

TEST(Container, isRefusedToTheThreePairsThatDoNotFit) {
    const TemporaryFolder folder;
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(pcmFormat(16000, 1));
    const auto sbcEncoder =
        makeNode<SBCEncoder>(source, std::make_shared<SBCCoding::SBCConfiguration>());
    EXPECT_THROW(makeNode<ZAVSbcFileSink>(sbcEncoder, folder / "a.zsbc"), AudioStreamError);
    for (const double rate : {12000.0, 24000.0}) {
        source->setOutDataFormat(pcmFormat(rate, 1));
        const auto opusEncoder = makeNode<OpusEncoder>(source);
        EXPECT_THROW(makeNode<ZAVOpusFileSink>(opusEncoder, folder / "a.zopus"), AudioStreamError);
        EXPECT_TRUE(opusEncoder->downstreams().empty());
        makeNode<OpusDecoder>(opusEncoder);
    }
    EXPECT_TRUE(sbcEncoder->downstreams().empty());
    EXPECT_FALSE(std::filesystem::exists(folder / "a.zsbc"));
    EXPECT_FALSE(std::filesystem::exists(folder / "a.zopus"));
}

}  // namespace
}  // namespace zav::test
