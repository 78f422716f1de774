#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/formats/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/formats/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp"
#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

AudioStreamBasicDescription sbcContainerFormat(double rate = 44100, std::uint32_t channels = 2,
                                               std::uint32_t flags = 0) {
    auto format = sbcFormat(rate, channels, flags, 100);
    format.mBitsPerChannel = 16;
    return format;
}

class ContainerFileSinkTest : public testing::Test {
 protected:
    void start() { source_->downstreams().onAudioStreamFlowStart(); }
    void push(std::span<const std::byte> bytes, std::uint64_t packetNum,
              const AudioStreamPacketDescription* descriptions = nullptr) {
        source_->downstreams().receiveAudio(bytes.data(), bytes.size(), packetNum, descriptions);
    }
    void end() { source_->downstreams().onAudioStreamFlowEnd(); }

    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "container";
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

TEST_F(ContainerFileSinkTest, makesTheFileAtOnceAndItsHeaderAtFlowStart) {
    writeFile(path_, testBytes(200));
    source_->setOutDataFormat(opusFormat(48000, 2));
    const auto opusSink = makeNode<ZAVOpusFileSink>(source_, path_);
    EXPECT_EQ(opusSink->fileURL(), path_);
    EXPECT_TRUE(readFile(path_).empty());
    start();
    end();
    EXPECT_EQ(readFile(path_).size(), 48U);

    source_ = makeNode<PeripheralSource>();
    source_->setOutDataFormat(sbcContainerFormat());
    makeNode<ZAVSbcFileSink>(source_, path_);
    EXPECT_TRUE(readFile(path_).empty());
    // The header is of the format at flow start.
    source_->setOutDataFormat(sbcContainerFormat(32000.9, 1, 0x00FF0E02));
    start();
    push({}, 0);
    end();
    const Bytes bytes = readFile(path_);
    ASSERT_EQ(bytes.size(), 64U);
    const auto header = SbcFileHeader::fromBytes(std::span(bytes).first<64>());
    EXPECT_EQ(header.sampleRate, 32000U);
    EXPECT_EQ(header.channels, 1U);
    EXPECT_EQ(header.endianness, 1U);
    EXPECT_EQ(header.subbands, 1U);
    EXPECT_EQ(header.blocks, 2U);
    EXPECT_EQ(header.allocation, 1U);
    EXPECT_EQ(header.bitpool, 255U);
}

TEST_F(ContainerFileSinkTest, framesOpusPackets) {
    source_->setOutDataFormat(opusFormat(16000, 1));
    makeNode<ZAVOpusFileSink>(source_, path_);
    start();
    const Bytes chunk = testBytes(100);
    push(chunk, 0);
    push(chunk, 3);  // of 33 bytes; the last byte is dropped
    const AudioStreamPacketDescription descriptions[] = {{60, 0, 10}, {5, 9, 0}};
    push(chunk, 2, descriptions);
    end();

    Bytes expected;
    const auto addRecord = [&](std::span<const std::byte> packet) {
        const auto header = OpusRecordHeader{static_cast<std::uint32_t>(packet.size())}.toBytes();
        expected.insert(expected.end(), header.begin(), header.end());
        expected.insert(expected.end(), packet.begin(), packet.end());
    };
    const std::span bytes(chunk);
    for (const auto& packet : {bytes.first(33), bytes.subspan(33, 33), bytes.subspan(66, 33),
                               bytes.subspan(60, 10), bytes.first(0)}) {
        addRecord(packet);
    }
    const Bytes file = readFile(path_);
    EXPECT_TRUE(std::ranges::equal(std::span(file).subspan(48), expected));
}

TEST_F(ContainerFileSinkTest, writesALaterFlowOverTheFirstWithoutShorteningIt) {
    source_->setOutDataFormat(sbcContainerFormat());
    makeNode<ZAVSbcFileSink>(source_, path_);
    start();
    push(testBytes(100), 1);
    push(testBytes(50, 2), 1);
    end();
    Bytes expected = readFile(path_);
    ASSERT_EQ(expected.size(), 214U);
    const Bytes second = testBytes(30, 3);
    start();
    push(second, 1);
    start();  // once more, without an end
    push(second, 1);
    end();
    std::ranges::copy(second, expected.begin() + 64);
    EXPECT_EQ(readFile(path_), expected);
}

TEST_F(ContainerFileSinkTest, refusesUnsuitableUpstreamsBeforeItTouchesTheFile) {
    auto opusIn12000 = opusFormat(12000, 1);
    for (const auto& format : {opusIn12000,
                               opusFormat(24000, 1),
                               opusFormat(16000, 0),
                               opusFormat(16000, 3),
                               pcmFormat(8000, 1),
                               {}}) {
        source_->setOutDataFormat(format);
        EXPECT_THROW(makeNode<ZAVOpusFileSink>(source_, path_), AudioStreamError);
    }
    auto without16Bits = sbcContainerFormat();
    without16Bits.mBitsPerChannel = 0;
    for (const auto& format : {without16Bits, sbcContainerFormat(22050), sbcContainerFormat(8000),
                               sbcContainerFormat(16000, 3), pcmFormat(16000, 1)}) {
        source_->setOutDataFormat(format);
        EXPECT_THROW(makeNode<ZAVSbcFileSink>(source_, path_), AudioStreamError);
    }
    EXPECT_FALSE(std::filesystem::exists(path_));

    for (const double rate : {8000.0, 16000.0, 32000.0, 44100.0, 48000.0}) {
        source_->setOutDataFormat(opusFormat(rate, 1));
        makeNode<ZAVOpusFileSink>(source_, path_);
    }
    EXPECT_EQ(source_->downstreams().size(), 5U);
}

TEST_F(ContainerFileSinkTest, saysThatTheFileCannotBeMade) {
    source_->setOutDataFormat(opusFormat(16000, 1));
    for (const auto& path : {folder_ / "no/such/folder", folder_ / ""}) {
        try {
            makeNode<ZAVOpusFileSink>(source_, path);
            ADD_FAILURE();
        } catch (const AudioFileError& error) {
            EXPECT_EQ(error, AudioFileError::create());
        }
    }
    EXPECT_TRUE(source_->downstreams().empty());
}

TEST_F(ContainerFileSinkTest, stopsTheProcessWhenItCannotGoOn) {
    source_->setOutDataFormat(opusFormat(16000, 1));
    const auto opusSink = makeNode<ZAVOpusFileSink>(source_, path_);
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

// The messages of a write that fails in the middle of a stream: the header still fits the limit.
TEST_F(ContainerFileSinkTest, saysWhyAWriteFailed) {
    const auto pushBeyondTheLimit = [&](std::size_t limit) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit fileSize{limit, limit};
        setrlimit(RLIMIT_FSIZE, &fileSize);
        start();
        push(testBytes(1000), 1);
    };
    source_->setOutDataFormat(opusFormat(16000, 1));
    makeNode<ZAVOpusFileSink>(source_, path_);
    EXPECT_DEATH(pushBeyondTheLimit(60),
                 "^Fatal error: Writting to opus file failed: File too large");
    source_ = makeNode<PeripheralSource>();
    source_->setOutDataFormat(sbcContainerFormat());
    const auto sbcSink = makeNode<ZAVSbcFileSink>(source_, path_);
    EXPECT_DEATH(pushBeyondTheLimit(70),
                 "^Fatal error: Writing sbc data to file failed: File too large");
    EXPECT_DEATH(sbcSink->receiveAudio(nullptr, std::uint64_t{1} << 63U, 1, nullptr),
                 "^Fatal error: Not enough bits");
    EXPECT_DEATH(push({}, 1), "^Fatal error: No container file is open");
}

}  // namespace
}  // namespace zav::test
