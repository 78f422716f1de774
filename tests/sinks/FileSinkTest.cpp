#include "ZAVAudioStreaming/sinks/FileSink.hpp"

#include "tests/support/Formats.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ScriptedAudioFile.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Calls = std::vector<std::string>;

class FileSinkTest : public PushingTest {
 protected:
    FileSinkTest() {
        resetAudioFile();
        source_->setOutDataFormat(pcmFormat(16000, 1));
        sink_ = makeNode<FileSink>(source_, "out.caf", kAudioFileCAFType);
    }

    std::shared_ptr<FileSink> sink_;
};

TEST_F(FileSinkTest, writesOnlyBetweenFlowStartAndFlowEndInTheFormatOfTheStart) {
    EXPECT_EQ(sink_->fileURL(), "out.caf");
    EXPECT_EQ(sink_->fileFormat(), kAudioFileCAFType);
    const Bytes bytes = testBytes(4);
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
    EXPECT_TRUE(scriptedFile().calls.empty());
    source_->setOutDataFormat(pcmFormat(48000, 2));
    start();
    EXPECT_EQ(scriptedFile().path, "out.caf");
    EXPECT_EQ(scriptedFile().createdType, kAudioFileCAFType);
    EXPECT_EQ(scriptedFile().createdFormat, pcmFormat(48000, 2));
    EXPECT_EQ(scriptedFile().flags, kAudioFileFlags_EraseFile);
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 4.0);
    end();
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
    EXPECT_EQ(scriptedFile().written, bytes);
    EXPECT_EQ(scriptedFile().calls, (Calls{"create", "write", "get", "close"}));

    // The file of an unfinished flow is closed.
    scriptedFile().calls.clear();
    start();
    start();
    source_.reset();
    sink_.reset();
    EXPECT_EQ(scriptedFile().calls, (Calls{"create", "close", "create", "close"}));
}

TEST_F(FileSinkTest, numbersPacketsOnOverFlowsByWhatWasWritten) {
    const AudioStreamPacketDescription descriptions[3] = {};
    start();
    push(testBytes(20), 3, descriptions);
    EXPECT_EQ(scriptedFile().descriptions, descriptions);
    scriptedFile().packetsReported = 128;  // a decoder's chunk: one SBC frame of 128 PCM packets
    push(testBytes(256), 1);
    end();
    start();
    push(testBytes(20), 3);
    EXPECT_EQ(scriptedFile().writeIndices, (std::vector<std::int64_t>{0, 3, 131}));
    EXPECT_EQ(scriptedFile().writePacketCounts, (std::vector<std::uint32_t>{3, 1, 3}));
}

TEST_F(FileSinkTest, handsOnAMagicCookie) {
    const Bytes cookie = testBytes(39);
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "Fatal error: .*FileSink.cpp");
    start();
    sink_->setMagicCookie(cookie);
    EXPECT_EQ(scriptedFile().cookie, cookie);
    scriptedFile().failures["set"] = kAudioFileUnsupportedPropertyError;
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "^Fatal error: : file FileSink.cpp");
}

TEST_F(FileSinkTest, stopsTheProcessWhenItCannotGoOn) {
    EXPECT_DEATH(end(), "Fatal error: .*FileSink.cpp");
    scriptedFile().failures["create"] = kAudioFileUnsupportedDataFormatError;
    EXPECT_DEATH(start(), "^Fatal error: Creating audio file failed: file");

    scriptedFile().failures = {{"write", kAudioFileDiskFullError}};
    start();
    EXPECT_DEATH(push(testBytes(4), 2), "^Fatal error: Writing packets to file failed: -34: file");
    const std::byte nothing{};
    EXPECT_DEATH(sink_->receiveAudio(&nothing, 1, std::uint64_t{1} << 32U, nullptr),
                 "Fatal error: Not enough bits");
    EXPECT_DEATH(sink_->receiveAudio(&nothing, std::uint64_t{1} << 32U, 1, nullptr),
                 "Fatal error: Not enough bits");
    scriptedFile().propertyFailures[kAudioFilePropertyEstimatedDuration] = -1;
    EXPECT_DEATH(sink_->estimatedDuration(), "^Fatal error: : file FileSink.cpp");

    // A flow whose file does not close well has ended all the same.
    scriptedFile().failures = {{"close", kAudioFileIOError}};
    end();
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
}

}  // namespace
}  // namespace zav::test
