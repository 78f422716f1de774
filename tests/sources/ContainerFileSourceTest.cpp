#include <gtest/gtest.h>

#include <sys/resource.h>

#include <limits>
#include <system_error>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/formats/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/formats/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"
#include "ZAVAudioStreaming/sources/ZAVSbcFileSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Calls = std::vector<std::string>;

template <class Part>
void append(Bytes& bytes, const Part& part) {
    bytes.insert(bytes.end(), part.begin(), part.end());
}

class ZAVOpusFileSourceTest : public testing::Test {
 protected:
    /// A 16 kHz mono file whose n-th packet is `lengths[n]` bytes.
    void write(const std::vector<std::uint32_t>& lengths) {
        OpusFileHeader header;
        header.sampleRate = 16000;
        header.channels = 1;
        file_.clear();
        append(file_, header.toBytes());
        for (const std::uint32_t length : lengths) {
            append(file_, OpusRecordHeader{length}.toBytes());
            append(file_, testBytes(length, length));
        }
        writeFile(path_, file_);
    }

    void open() {
        source_ = makeNode<ZAVOpusFileSource>(path_);
        sink_ = makeNode<RecordingSink>(source_);
    }

    void expectNoMoreData(std::int64_t count) {
        try {
            source_->readPackets(count);
            ADD_FAILURE();
        } catch (const AudioFileError& error) {
            EXPECT_EQ(error, AudioFileError::noMoreData());
        }
    }

    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "stream.zopus";
    Bytes file_;
    std::shared_ptr<ZAVOpusFileSource> source_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(ZAVOpusFileSourceTest, deliversPacketsWithTheirDescriptions) {
    write({10, 0, 30, 40, 50});
    open();
    EXPECT_EQ(source_->outDataFormat(), opusFormat(16000, 1));
    source_->readPackets(2);
    source_->readPackets(2);
    source_->readPackets(2);
    expectNoMoreData(2);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "end"}));
    ASSERT_EQ(sink_->chunks.size(), 3U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 2U);
    EXPECT_EQ(sink_->chunks[0].descriptions,
              (std::vector<AudioStreamPacketDescription>{{0, 0, 10}, {10, 0, 0}}));
    EXPECT_EQ(sink_->chunks[1].descriptions,
              (std::vector<AudioStreamPacketDescription>{{0, 0, 30}, {30, 0, 40}}));
    Bytes expected;
    for (const std::uint32_t length : {10U, 30U, 40U, 50U}) {
        append(expected, testBytes(length, length));
    }
    EXPECT_EQ(sink_->allBytes(), expected);
}

TEST_F(ZAVOpusFileSourceTest, endsWithoutAFlowEndWhenTheCountsComeOutEven) {
    write({10, 20, 30, 40});
    open();
    source_->readPackets(2);
    source_->readPackets(2);
    expectNoMoreData(2);
    expectNoMoreData(1);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio"}));
}

TEST_F(ZAVOpusFileSourceTest, deliversAnEmptyPacketAlone) {
    write({0});
    open();
    source_->readPackets(1);
    EXPECT_EQ(sink_->chunks[0].descriptions,
              (std::vector<AudioStreamPacketDescription>{{0, 0, 0}}));
}

TEST_F(ZAVOpusFileSourceTest, answersAReadOfNothing) {
    write({10});
    open();
    source_->readPackets(0);
    source_->readPackets(1);
    source_->readPackets(0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "start", "audio", "audio"}));
    EXPECT_TRUE(sink_->chunks[0].hasDescriptions);
    EXPECT_EQ(sink_->chunks[0].packetNum, 0U);

    write({});
    open();
    expectNoMoreData(1);
    EXPECT_EQ(sink_->calls, (Calls{"start"}));
}

TEST_F(ZAVOpusFileSourceTest, looksAtNothingButItsFields) {
    write({10, 20});
    file_[20] = std::byte{0xAA};
    file_[40] = std::byte{0xAA};
    file_[32 + 3] = std::byte{0xFF};  // a rate that nobody has
    file_[37] = std::byte{0xFF};
    file_[48 + 4] = std::byte{0};  // behind the first packet's length
    writeFile(path_, file_);
    open();
    EXPECT_EQ(source_->outDataFormat(), opusFormat(0xFF003E80, 0xFF01));
    // More than could ever be there: only what is there takes memory.
    source_->readPackets(std::int64_t{1} << 58U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 2U);
    EXPECT_EQ(sink_->calls.back(), "end");
}

TEST_F(ZAVOpusFileSourceTest, refusesOtherFiles) {
    const auto expectInvalid = [&] {
        writeFile(path_, file_);
        try {
            open();
            ADD_FAILURE();
        } catch (const AudioFileError& error) {
            EXPECT_EQ(error, AudioFileError::invalidFormat());
        }
    };
    for (std::size_t i = 0; i < 16; ++i) {
        write({10});
        file_[i] ^= std::byte{1};
        expectInvalid();
    }
    file_.clear();
    append(file_, SbcFileHeader().toBytes());
    expectInvalid();

    try {
        makeNode<ZAVOpusFileSource>(folder_ / "nothing");
        ADD_FAILURE();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    }
}

TEST_F(ZAVOpusFileSourceTest, stopsAtOnceForALengthOfGigabytes) {
    write({10});
    append(file_, OpusRecordHeader{0xFFFFFFFF}.toBytes());
    append(file_, testBytes(100));
    writeFile(path_, file_);
    open();
    const auto readWithLittleMemory = [&] {
    // Not under the sanitizers, whose own memory does not fit.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        const rlimit memory{std::uint64_t{1} << 30U, std::uint64_t{1} << 30U};
        setrlimit(RLIMIT_AS, &memory);
#endif
        source_->readPackets(2);
    };
    EXPECT_DEATH(readWithLittleMemory(),
                 "^Fatal error: Reading the packet length field from opus file failed: file");
    EXPECT_DEATH(source_->readPackets(-1), "^Fatal error: Not enough bits");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 60U), "^Fatal error: Arithmetic overflow");
}

/// Comes in behind the check of the magic text, which lets nothing through.
class OpenedSbcFileSource : public ZAVSbcFileSource {
 public:
    OpenedSbcFileSource(NodeKey key, const std::filesystem::path& path)
        : ZAVSbcFileSource(key, open(path)) {}

 private:
    static OpenedFile open(const std::filesystem::path& path) {
        FileHandle file = FileHandle::openForReading(path);
        std::array<std::byte, SbcFileHeader::kByteCount> header;
        readHeader(file, header);
        return openBehindMagic(std::move(file), header);
    }
};

class ZAVSbcFileSourceTest : public testing::Test {
 protected:
    ZAVSbcFileSourceTest() {
        header_.sampleRate = 16000;
        header_.channels = 1;
        header_.subbands = 1;
        header_.blocks = 3;
        header_.bitpool = 32;
    }

    void open(std::size_t bodySize = 0) {
        Bytes file;
        append(file, header_.toBytes());
        append(file, testBytes(bodySize));
        writeFile(path_, file);
        source_ = makeNode<OpenedSbcFileSource>(path_);
        sink_ = makeNode<RecordingSink>(source_);
    }

    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "stream.zsbc";
    SbcFileHeader header_;
    std::shared_ptr<ZAVSbcFileSource> source_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(ZAVSbcFileSourceTest, refusesEveryFile) {
    Bytes file;
    append(file, header_.toBytes());
    append(file, testBytes(72));
    // As the sink writes it, and with each byte that could be meant by a letter.
    for (int value = 0; value <= 256; ++value) {
        writeFile(path_, file);
        try {
            makeNode<ZAVSbcFileSource>(path_);
            ADD_FAILURE();
        } catch (const AudioFileError& error) {
            EXPECT_EQ(error, AudioFileError::invalidFormat());
        }
        std::fill_n(file.begin(), 6, static_cast<std::byte>(value));
        file[6] = static_cast<std::byte>(value);
    }
    EXPECT_THROW(makeNode<ZAVSbcFileSource>(folder_ / "nothing"), std::system_error);
}

TEST_F(ZAVSbcFileSourceTest, worksOutItsFormatFromTheHeader) {
    open();
    auto expected = sbcFormat(16000, 1, 0x00200B00, 72);
    expected.mFramesPerPacket = 2;  // 256 bytes of PCM through 128
    EXPECT_EQ(source_->outDataFormat(), expected);

    header_.sampleRate = 48000;
    header_.channels = 2;
    header_.subbands = 2;  // anything but 1 means 4
    header_.blocks = 1;
    header_.endianness = 1;
    header_.allocation = 1;
    header_.bitpool = 20;
    open();
    // 4 + 4 x 2 / 2 + 8 x 20 / 8 bytes; 4 x 8 x 2 x 2 = 128 bytes of PCM through 2, through 128.
    expected = sbcFormat(48000, 2, 0x00140502, 28);
    expected.mFramesPerPacket = 0;
    EXPECT_EQ(source_->outDataFormat(), expected);

    header_.channels = 5;  // reads as stereo, and is announced as it stands
    open();
    EXPECT_EQ(source_->outDataFormat().mBytesPerPacket, 28U);
    EXPECT_EQ(source_->outDataFormat().mChannelsPerFrame, 5U);
}

TEST_F(ZAVSbcFileSourceTest, deliversFramesAndThePartOfOneWithTheLastChunk) {
    open(3 * 72 + 10);
    EXPECT_EQ(source_->readPackets(2), 2);
    EXPECT_EQ(source_->readPackets(2), 1);
    EXPECT_EQ(source_->readPackets(2), 0);
    EXPECT_EQ(source_->readPackets(2), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "end", "end"}));
    EXPECT_EQ(sink_->chunks[1].bytes.size(), 82U);
    EXPECT_EQ(sink_->chunks[1].packetNum, 1U);
    EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
    EXPECT_EQ(sink_->allBytes(), testBytes(3 * 72 + 10));
}

TEST_F(ZAVSbcFileSourceTest, endsWellWhereverTheFileIsCut) {
    constexpr std::size_t kFrame = 72;
    for (std::size_t body = 0; body <= 3 * kFrame; ++body) {
        open(body);
        std::size_t frames = 0;
        while (const auto count = source_->readPackets(2)) {
            frames += static_cast<std::size_t>(count);
        }
        EXPECT_EQ(frames, body / kFrame) << body;
        EXPECT_EQ(sink_->calls.back(), "end") << body;
        // A part of a frame travels only with a chunk that has a whole one before it.
        const bool isRestRead = frames % 2 == 1;
        EXPECT_EQ(sink_->allBytes().size(), isRestRead ? body : frames * kFrame) << body;
    }
}

TEST_F(ZAVSbcFileSourceTest, dropsAPartOfAFrameThatComesAlone) {
    open(2 * 72 + 10);
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(source_->readPackets(2), 2);
    EXPECT_EQ(source_->readPackets(std::int64_t{1} << 40U), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "audio", "end"}));
}

TEST_F(ZAVSbcFileSourceTest, stopsTheProcessForParametersThatSbcDoesNotHave) {
    open();
    EXPECT_DEATH(source_->readPackets(-1), "^Fatal error: Not enough bits");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 62U), "^Fatal error: Arithmetic overflow");
    constexpr auto kMostBytes = std::numeric_limits<std::int64_t>::max();
    EXPECT_DEATH(source_->readPackets(kMostBytes / 72 + 1), "^Fatal error: Arithmetic overflow");
    header_.channels = 0;
    EXPECT_DEATH(open(), "^Fatal error: Division by zero");
    header_.channels = 1;
    header_.blocks = 4;
    EXPECT_DEATH(open(), "^Fatal error: The block count code .*ZAVSbcFileSource.cpp");
    header_.blocks = 3;
    header_.sampleRate = 22050;
    EXPECT_DEATH(open(), "^Fatal error: The sample rate .*ZAVSbcFileSource.cpp");
}

}  // namespace
}  // namespace zav::test
