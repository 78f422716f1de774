
#include <fstream>
#include <sstream>

#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp"
#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ResourceLimit.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {
namespace {

AudioStreamBasicDescription sbcContainerFormat(double rate = 44100, std::uint32_t channels = 2,
                                               std::uint32_t flags = 0) {
    auto format = sbcFormat(rate, channels, flags, 100);
    format.mBitsPerChannel = 16;
    return format;
}

/// Bytes of the hex dump on a page of the documentation.
Bytes exampleOf(const std::string& page) {
    std::ifstream file(std::string(ZAV_DOCS) + "/" + page);
    Bytes bytes;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("000000")) {
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

class ContainerFileSinkTest : public PushingTest {
 protected:
    /// Makes a sink for this format on a new source.
    template <class Sink>
    std::shared_ptr<Sink> make(const AudioStreamBasicDescription& format) {
        source_ = makeNode<PeripheralSource>();
        source_->setOutDataFormat(format);
        return makeNode<Sink>(source_, path_);
    }

    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "container";
};

TEST_F(ContainerFileSinkTest, writesTheExamplesOfTheDocumentation) {
    make<ZAVOpusFileSink>(opusFormat(16000, 1));
    start();
    push(bytesFrom({0x58, 0x07, 0xC9, 0x72, 0x1F}), 1);
    push({}, 1);
    EXPECT_EQ(readFile(path_), exampleOf("opus-container.md"));
    make<ZAVSbcFileSink>(sbcContainerFormat(16000, 1, 0x00200B00));
    start();
    push(bytesFrom({0x9C, 0x3D}), 1);
    EXPECT_EQ(readFile(path_), exampleOf("sbc-container.md"));
}

TEST_F(ContainerFileSinkTest, writesTheHeaderAtFlowStart) {
    writeFile(path_, testBytes(200));
    const auto opusSink = make<ZAVOpusFileSink>(opusFormat(48000, 2));
    EXPECT_EQ(opusSink->fileURL(), path_);
    EXPECT_TRUE(readFile(path_).empty());
    start();
    end();
    EXPECT_EQ(readFile(path_).size(), 48U);

    make<ZAVSbcFileSink>(sbcContainerFormat());
    EXPECT_TRUE(readFile(path_).empty());
    // The header describes the format at flow start.
    source_->setOutDataFormat(sbcContainerFormat(32000.9, 1, 0x00FF0E02));
    start();
    push({}, 0);
    end();
    const Bytes bytes = readFile(path_);
    ASSERT_EQ(bytes.size(), 64U);
    EXPECT_EQ(joined({std::span(bytes).subspan(32, 6)}), bytesFrom({0x00, 0x7D, 0, 0, 1, 0}));
    // 8 subbands, 12 blocks, big-endian, SNR, bitpool
    EXPECT_EQ(joined({std::span(bytes).subspan(48, 5)}), bytesFrom({1, 2, 1, 1, 255}));
}

TEST_F(ContainerFileSinkTest, framesOpusPackets) {
    make<ZAVOpusFileSink>(opusFormat(16000, 1));
    start();
    const Bytes chunk = testBytes(100);
    push(chunk, 0);
    push(chunk, 3);  // of 33 bytes; the last byte is dropped
    const AudioStreamPacketDescription descriptions[] = {{60, 0, 10}, {5, 9, 0}};
    push(chunk, 2, descriptions);
    end();

    Bytes expected = readFile(path_);
    expected.resize(48);
    const std::span bytes(chunk);
    for (const auto& packet : {bytes.first(33), bytes.subspan(33, 33), bytes.subspan(66, 33),
                               bytes.subspan(60, 10), bytes.first(0)}) {
        const OpusRecordHeader header{static_cast<std::uint32_t>(packet.size())};
        expected = joined({expected, header.toBytes(), packet});
    }
    EXPECT_EQ(readFile(path_), expected);
}

TEST_F(ContainerFileSinkTest, writesALaterFlowOverTheFirstWithoutShorteningIt) {
    make<ZAVSbcFileSink>(sbcContainerFormat());
    start();
    push(testBytes(100), 1);
    push(testBytes(50, 2), 1);
    end();
    const Bytes first = readFile(path_);
    ASSERT_EQ(first.size(), 214U);
    const Bytes second = testBytes(30, 3);
    start();
    push(second, 1);
    start();  // once more, without an end
    push(second, 1);
    end();
    EXPECT_EQ(readFile(path_),
              joined({std::span(first).first(64), second, std::span(first).subspan(94)}));
}

TEST_F(ContainerFileSinkTest, refusesUnsuitableUpstreamsBeforeItTouchesTheFile) {
    // Among them the formats of an Opus encoder at 12 and 24 kHz and of an SBC encoder.
    expectRefused<ZAVOpusFileSink>({opusFormat(12000, 1), opusFormat(24000, 1),
                                    opusFormat(16000, 0), opusFormat(16000, 3), pcmFormat(8000, 1)},
                                   path_);
    expectRefused<ZAVSbcFileSink>(
        {sbcFormat(44100, 2, 0, 100), sbcContainerFormat(22050), sbcContainerFormat(8000),
         sbcContainerFormat(16000, 3), pcmFormat(16000, 1)},
        path_);
    EXPECT_FALSE(std::filesystem::exists(path_));
    for (const double rate : {8000.0, 16000.0, 32000.0, 44100.0, 48000.0}) {
        make<ZAVOpusFileSink>(opusFormat(rate, 1));
    }
}

TEST_F(ContainerFileSinkTest, saysThatTheFileCannotBeMade) {
    source_->setOutDataFormat(opusFormat(16000, 1));
    for (const auto& path : {folder_ / "no/such/folder", folder_ / ""}) {
        expectThrown(AudioFileError::create(), [&] { makeNode<ZAVOpusFileSink>(source_, path); });
    }
    EXPECT_TRUE(source_->downstreams().empty());
}

TEST_F(ContainerFileSinkTest, stopsTheProcessWhenItCannotGoOn) {
    const auto opusSink = make<ZAVOpusFileSink>(opusFormat(16000, 1));
    const Bytes chunk = testBytes(10);
    EXPECT_DEATH(push(chunk, 1), "^Fatal error: No container file is open");
    push(chunk, 0);
    EXPECT_DEATH(end(), "^Fatal error: No container file is open");
    std::filesystem::remove(path_);
    EXPECT_DEATH(start(), "^Fatal error: No such file or directory: file ContainerFileSink.cpp");
    writeFile(path_, {});
    start();
    EXPECT_DEATH(push(chunk, std::uint64_t{1} << 63U), "^Fatal error: Not enough bits");
    EXPECT_DEATH(opusSink->receiveAudio(chunk.data(), std::uint64_t{1} << 32U, 1, nullptr),
                 "^Fatal error: Not enough bits");

    source_ = makeNode<PeripheralSource>();
    source_->setOutDataFormat(opusFormat(16000, 1));
    makeNode<ZAVOpusFileSink>(source_, "/dev/full");
    EXPECT_DEATH(start(), "^Fatal error: No space left on device: file ContainerFileSink.cpp");
    source_->setOutDataFormat(opusFormat(1e10, 1));
    EXPECT_DEATH(start(), "^Fatal error: Not enough bits");
}

// A write fails in the middle of a stream: the header still fits the limit.
TEST_F(ContainerFileSinkTest, saysWhyAWriteFailed) {
    const auto pushBeyondTheLimit = [&](std::size_t limit) {
        const ResourceLimit fileSize(RLIMIT_FSIZE, limit);
        start();
        push(testBytes(1000), 1);
    };
    make<ZAVOpusFileSink>(opusFormat(16000, 1));
    EXPECT_DEATH(pushBeyondTheLimit(60),
                 "^Fatal error: Writting to opus file failed: File too large");
    const auto sbcSink = make<ZAVSbcFileSink>(sbcContainerFormat());
    EXPECT_DEATH(pushBeyondTheLimit(70),
                 "^Fatal error: Writing sbc data to file failed: File too large");
    EXPECT_DEATH(sbcSink->receiveAudio(nullptr, std::uint64_t{1} << 63U, 1, nullptr),
                 "^Fatal error: Not enough bits");
    EXPECT_DEATH(push({}, 1), "^Fatal error: No container file is open");
}

}  // namespace
}  // namespace zav::test
