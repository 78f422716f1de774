#include "ZAVAudioStreaming/sinks/FileSink.hpp"

#include "tests/support/NodeTest.hpp"
#include "tests/support/ScriptedAudioFile.hpp"

namespace zav::test {
namespace {

class FileSinkTest : public PushingTest {
 protected:
    FileSinkTest() {
        resetAudioFile();
        file_.setProperty(kAudioFilePropertyEstimatedDuration, 4.0);
        source_->setOutDataFormat(pcmFormat(16000, 1));
        sink_ = makeNode<FileSink>(source_, "out.caf", kAudioFileCAFType);
    }

    ScriptedAudioFile& file_ = scriptedFile();
    std::shared_ptr<FileSink> sink_;
};

TEST_F(FileSinkTest, writesDuringAFlowInTheFormatOfItsStart) {
    EXPECT_EQ(sink_->fileURL(), "out.caf");
    EXPECT_EQ(sink_->fileFormat(), kAudioFileCAFType);
    const Bytes bytes = testBytes(4);
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
    source_->setOutDataFormat(pcmFormat(48000, 2));
    start();
    EXPECT_EQ(file_.createdFormat, pcmFormat(48000, 2));
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 4.0);
    end();
    push(bytes, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
    EXPECT_EQ(file_.written, bytes);
    const std::string create = "create anew out.caf as caff";
    EXPECT_EQ(file_.calls, (Calls{create, "write 2 at 0", "close"}));
}

TEST_F(FileSinkTest, closesTheFileOfAnUnfinishedFlow) {
    const std::string create = "create anew out.caf as caff";
    start();
    start();
    source_.reset();
    sink_.reset();
    EXPECT_EQ(file_.calls, (Calls{create, "close", create, "close"}));
}

TEST_F(FileSinkTest, numbersPacketsOnOverFlowsByWhatWasWritten) {
    const AudioStreamPacketDescription descriptions[3] = {};
    start();
    push(testBytes(20), 3, descriptions);
    EXPECT_EQ(file_.descriptions, descriptions);
    EXPECT_EQ(file_.calls.back(), "write 3 at 0");
    file_.packetsReported = 128;  // a decoder's chunk: one SBC frame of 128 PCM packets
    push(testBytes(256), 1);
    EXPECT_EQ(file_.calls.back(), "write 1 at 3");
    end();
    start();
    push(testBytes(20), 3);
    EXPECT_EQ(file_.calls.back(), "write 3 at 131");
}

TEST_F(FileSinkTest, handsOnAMagicCookie) {
    const Bytes cookie = testBytes(39);
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "Fatal error: .*FileSink.cpp");
    start();
    sink_->setMagicCookie(cookie);
    EXPECT_EQ(file_.properties[kAudioFilePropertyMagicCookieData], cookie);
    file_.failures["set"] = kAudioFileUnsupportedPropertyError;
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "^Fatal error: : file FileSink.cpp");
}

TEST_F(FileSinkTest, stopsTheProcessWhenItCannotGoOn) {
    EXPECT_DEATH(end(), "Fatal error: .*FileSink.cpp");
    file_.failures["create"] = kAudioFileUnsupportedDataFormatError;
    EXPECT_DEATH(start(), "^Fatal error: Creating audio file failed: file");

    file_.failures = {{"write", kAudioFileDiskFullError}};
    start();
    EXPECT_DEATH(push(testBytes(4), 2), "^Fatal error: Writing packets to file failed: -34: file");
    const std::byte nothing{};
    EXPECT_DEATH(sink_->receiveAudio(&nothing, 1, std::uint64_t{1} << 32U, nullptr),
                 "Fatal error: Not enough bits");
    EXPECT_DEATH(sink_->receiveAudio(&nothing, std::uint64_t{1} << 32U, 1, nullptr),
                 "Fatal error: Not enough bits");
    file_.properties.clear();
    EXPECT_DEATH(sink_->estimatedDuration(), "^Fatal error: : file FileSink.cpp");

    // A failure to close does not keep the flow from ending.
    file_.failures = {{"close", kAudioFileIOError}};
    end();
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
}

}  // namespace
}  // namespace zav::test
