#include <limits>
#include <system_error>

#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/containers/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"
#include "ZAVAudioStreaming/sources/ZAVSbcFileSource.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ResourceLimit.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace zav::test {
namespace {

using Descriptions = std::vector<AudioStreamPacketDescription>;

template <class Source>
class ContainerSourceTest : public testing::Test {
 protected:
    void open() {
        writeFile(path_, file_);
        source_ = makeNode<Source>(path_);
        sink_ = makeNode<RecordingSink>(source_);
    }

    void expectNoSuchFile() {
        try {
            makeNode<Source>(folder_ / "nothing");
            ADD_FAILURE();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        }
    }

    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "container";
    Bytes file_;
    std::shared_ptr<Source> source_;
    std::shared_ptr<RecordingSink> sink_;
};

class ZAVOpusFileSourceTest : public ContainerSourceTest<ZAVOpusFileSource> {
 protected:
    /// A 16 kHz mono file whose n-th packet is `lengths[n]` bytes.
    void fill(const std::vector<std::uint32_t>& lengths) {
        OpusFileHeader header;
        header.sampleRate = 16000;
        header.channels = 1;
        file_ = joined({header.toBytes()});
        for (const std::uint32_t length : lengths) {
            file_ = joined({file_, OpusRecordHeader{length}.toBytes(), testBytes(length, length)});
        }
    }

    void expectNoMoreData(std::int64_t count) {
        expectThrown(AudioFileError::noMoreData(), [&] { source_->readPackets(count); });
    }
};

TEST_F(ZAVOpusFileSourceTest, deliversPacketsWithTheirDescriptions) {
    fill({10, 0, 30, 40, 50});
    open();
    EXPECT_EQ(source_->outDataFormat(), opusFormat(16000, 1));
    source_->readPackets(2);
    source_->readPackets(2);
    source_->readPackets(2);
    expectNoMoreData(2);
    expectNoMoreData(1);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "end"}));
    ASSERT_EQ(sink_->chunks.size(), 3U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 2U);
    EXPECT_EQ(sink_->chunks[0].descriptions, (Descriptions{{0, 0, 10}, {10, 0, 0}}));
    EXPECT_EQ(sink_->chunks[1].descriptions, (Descriptions{{0, 0, 30}, {30, 0, 40}}));
    EXPECT_EQ(sink_->allBytes(),
              joined({testBytes(10, 10), testBytes(30, 30), testBytes(40, 40), testBytes(50, 50)}));
}

TEST_F(ZAVOpusFileSourceTest, deliversAnEmptyPacketAlone) {
    fill({0});
    open();
    source_->readPackets(0);
    source_->readPackets(1);
    source_->readPackets(0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "start", "audio", "audio"}));
    EXPECT_TRUE(sink_->chunks[0].hasDescriptions);
    EXPECT_EQ(sink_->chunks[0].packetNum, 0U);
    EXPECT_EQ(sink_->chunks[1].descriptions, (Descriptions{{0, 0, 0}}));
}

TEST_F(ZAVOpusFileSourceTest, findsNoPacketInAFileWithoutAny) {
    fill({});
    open();
    expectNoMoreData(1);
    EXPECT_EQ(sink_->calls, (Calls{"start"}));
}

TEST_F(ZAVOpusFileSourceTest, looksAtNothingButItsFields) {
    fill({10, 20});
    file_[20] = std::byte{0xAA};
    file_[40] = std::byte{0xAA};
    file_[32 + 3] = std::byte{0xFF};  // a rate that Opus does not have
    file_[37] = std::byte{0xFF};
    file_[48 + 4] = std::byte{0};  // behind the first packet's length
    open();
    EXPECT_EQ(source_->outDataFormat(), opusFormat(0xFF003E80, 0xFF01));
    // Memory is taken only for packets that the file has.
    source_->readPackets(std::int64_t{1} << 58U);
    EXPECT_EQ(sink_->chunks[0].packetNum, 2U);
    EXPECT_EQ(sink_->calls.back(), "end");
}

TEST_F(ZAVOpusFileSourceTest, refusesOtherFiles) {
    for (std::size_t i = 0; i < 16; ++i) {
        fill({10});
        file_[i] ^= std::byte{1};
        expectThrown(AudioFileError::invalidFormat(), [&] { open(); });
    }
    file_ = joined({SbcFileHeader().toBytes()});
    expectThrown(AudioFileError::invalidFormat(), [&] { open(); });
    expectNoSuchFile();
}

// The expected values follow from the layout of the file alone.
TEST_F(ZAVOpusFileSourceTest, endsCleanlyWhereverTheFileIsCut) {
    const std::vector<std::uint32_t> lengths = {5, 0, 9, 0};
    fill(lengths);
    const Bytes whole = file_;
    ASSERT_EQ(whole.size(), 48 + 4 * 8 + 14U);
    const auto readAll = [&] {
        for (;;) {
            source_->readPackets(3);
        }
    };
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        SCOPED_TRACE("cut behind " + std::to_string(cut));
        file_ = joined({std::span(whole).first(cut)});
        if (cut < 48) {
            expectThrown(AudioFileError::invalidFormat(), [&] { open(); });
            continue;
        }
        open();
        std::size_t end = 48;
        std::uint64_t packets = 0;
        while (packets < lengths.size() && end + 8 + lengths[packets] <= cut) {
            end += 8 + lengths[packets++];
        }
        if (cut - end >= 8) {
            EXPECT_DEATH(readAll(),
                         "^Fatal error: Reading the packet length field from opus file failed: "
                         "file");
            continue;
        }
        expectThrown(AudioFileError::noMoreData(), readAll);
        EXPECT_EQ(sink_->allBytes().size(), end - 48 - 8 * packets);
        // No flow end if the number of packets is a multiple of the number that is read at once.
        EXPECT_EQ(sink_->calls.back() == "end", packets % 3 != 0);
    }
}

TEST_F(ZAVOpusFileSourceTest, stopsAtOnceForALengthOfGigabytes) {
    fill({10});
    file_ = joined({file_, OpusRecordHeader{0xFFFFFFFF}.toBytes(), testBytes(100)});
    open();
    const auto readWithLittleMemory = [&] {
    // Not under the sanitizers, which themselves need more memory.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        const ResourceLimit memory(RLIMIT_AS, std::uint64_t{1} << 30U);
#endif
        source_->readPackets(2);
    };
    EXPECT_DEATH(readWithLittleMemory(),
                 "^Fatal error: Reading the packet length field from opus file failed: file");
    EXPECT_DEATH(source_->readPackets(-1), "^Fatal error: Not enough bits");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 60U), "^Fatal error: Arithmetic overflow");
}

/// Skips the check of the magic text, which refuses every file.
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

class ZAVSbcFileSourceTest : public ContainerSourceTest<OpenedSbcFileSource> {
 protected:
    ZAVSbcFileSourceTest() {
        header_.sampleRate = 16000;
        header_.channels = 1;
        header_.subbands = 1;
        header_.blocks = 3;
        header_.bitpool = 32;
    }

    void openWith(std::size_t bodySize) {
        file_ = joined({header_.toBytes(), testBytes(bodySize)});
        open();
    }

    SbcFileHeader header_;
};

TEST_F(ZAVSbcFileSourceTest, refusesEveryFile) {
    const auto expectInvalid = [&](std::span<const std::byte> file) {
        writeFile(path_, file);
        expectThrown(AudioFileError::invalidFormat(), [&] { makeNode<ZAVSbcFileSource>(path_); });
    };
    file_ = joined({header_.toBytes(), testBytes(72)});
    // A file as the sink writes it, cut at every byte. Then every value of the bytes of the text.
    for (std::size_t cut = 0; cut <= file_.size(); ++cut) {
        expectInvalid(std::span(file_).first(cut));
    }
    for (int value = 0; value < 256; ++value) {
        std::fill_n(file_.begin(), 7, static_cast<std::byte>(value));
        expectInvalid(file_);
    }
    expectNoSuchFile();
}

TEST_F(ZAVSbcFileSourceTest, worksOutItsFormatFromTheHeader) {
    openWith(0);
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
    openWith(0);
    // 4 + 4 x 2 / 2 + 8 x 20 / 8 bytes; 4 x 8 x 2 x 2 = 128 bytes of PCM through 2, through 128.
    expected = sbcFormat(48000, 2, 0x00140502, 28);
    expected.mFramesPerPacket = 0;
    EXPECT_EQ(source_->outDataFormat(), expected);

    header_.channels = 5;  // decoded as stereo, but announced as 5
    openWith(0);
    expected.mChannelsPerFrame = 5;
    EXPECT_EQ(source_->outDataFormat(), expected);
}

TEST_F(ZAVSbcFileSourceTest, deliversAPartOfAFrameWithTheLastChunk) {
    openWith(3 * 72 + 10);
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(source_->readPackets(2), 2);
    EXPECT_EQ(source_->readPackets(std::int64_t{1} << 40U), 1);
    EXPECT_EQ(source_->readPackets(std::int64_t{1} << 40U), 0);
    EXPECT_EQ(source_->readPackets(2), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "audio", "audio", "end", "end"}));
    EXPECT_EQ(sink_->chunks[1].bytes.size(), 82U);
    EXPECT_EQ(sink_->chunks[1].packetNum, 1U);
    EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
    EXPECT_EQ(sink_->allBytes(), testBytes(3 * 72 + 10));
}

TEST_F(ZAVSbcFileSourceTest, endsCleanlyWhereverTheFileIsCut) {
    constexpr std::size_t kFrame = 72;
    for (std::size_t body = 0; body <= 3 * kFrame; ++body) {
        openWith(body);
        std::size_t frames = 0;
        while (const auto count = source_->readPackets(2)) {
            frames += static_cast<std::size_t>(count);
        }
        EXPECT_EQ(frames, body / kFrame) << body;
        EXPECT_EQ(sink_->calls.back(), "end") << body;
        // A part of a frame is delivered only in a chunk that also has a whole one.
        const bool isRestRead = frames % 2 == 1;
        EXPECT_EQ(sink_->allBytes().size(), isRestRead ? body : frames * kFrame) << body;
    }
}

TEST_F(ZAVSbcFileSourceTest, stopsTheProcessForParametersThatSbcDoesNotHave) {
    openWith(0);
    EXPECT_DEATH(source_->readPackets(-1), "^Fatal error: Not enough bits");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 62U), "^Fatal error: Arithmetic overflow");
    constexpr auto kMostBytes = std::numeric_limits<std::int64_t>::max();
    EXPECT_DEATH(source_->readPackets(kMostBytes / 72 + 1), "^Fatal error: Arithmetic overflow");
    header_.channels = 0;
    EXPECT_DEATH(openWith(0), "^Fatal error: Division by zero");
    header_.channels = 1;
    header_.blocks = 4;
    EXPECT_DEATH(openWith(0), "^Fatal error: The block count code .*ZAVSbcFileSource.cpp");
    header_.blocks = 3;
    header_.sampleRate = 22050;
    EXPECT_DEATH(openWith(0), "^Fatal error: The sample rate .*ZAVSbcFileSource.cpp");
}

}  // namespace
}  // namespace zav::test
