#include "ZAVAudioStreaming/sources/FileSource.hpp"

#include <cmath>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ScriptedAudioFile.hpp"

namespace zav::test {
namespace {

/// A file of ten packets of 8 bytes.
class FileSourceTest : public testing::Test {
 protected:
    FileSourceTest() {
        resetAudioFile();
        file_.setProperty(kAudioFilePropertyDataFormat, pcmFormat(44100, 4));
        file_.setProperty(kAudioFilePropertyPacketSizeUpperBound, 8U);
        file_.setProperty(kAudioFilePropertyAudioDataPacketCount, std::uint64_t{10});
        file_.audio = testBytes(80);
    }

    void open() {
        source_ = makeNode<FileSource>("folder/file.wav");
        sink_ = makeNode<RecordingSink>(source_);
    }

    ScriptedAudioFile& file_ = scriptedFile();
    std::shared_ptr<FileSource> source_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(FileSourceTest, reportsTheFilesOwnProperties) {
    open();
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(44100, 4));
    file_.setProperty(kAudioFilePropertyDataFormat, pcmFormat(8000, 1));
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(8000, 1));
    EXPECT_EQ(source_->packetSizeUpperBound(), 8U);
}

TEST_F(FileSourceTest, closesTheFileBeforeItReleasesItsTargets) {
    open();
    class Watcher : public PeripheralSink {
     public:
        using PeripheralSink::PeripheralSink;
        ~Watcher() override { scriptedFile().note("target released"); }
    };
    makeNode<Watcher>(source_);
    source_.reset();
    EXPECT_EQ(file_.calls, (Calls{"open folder/file.wav", "close", "target released"}));
}

TEST_F(FileSourceTest, throwsTheStatusOfAFileThatDoesNotOpen) {
    file_.failures["open"] = kAudioFileUnsupportedFileTypeError;
    expectThrown(AudioFileError::open(kAudioFileUnsupportedFileTypeError), [&] { open(); });
    EXPECT_EQ(file_.calls.size(), 1U);
    file_.failures.clear();
    file_.givesNoID = true;
    EXPECT_DEATH(open(), "Fatal error: ");
}

TEST_F(FileSourceTest, pushesTheFileInChunksOfTheGivenCount) {
    open();
    EXPECT_EQ(source_->progress(), 0.0F);
    EXPECT_EQ(source_->readPackets(4), 4);
    EXPECT_EQ(file_.calls.back(), "read 4 packets into 32");
    EXPECT_EQ(source_->readPackets(4), 4);
    EXPECT_FLOAT_EQ(source_->progress(), 0.8F);
    EXPECT_EQ(source_->readPackets(4), 2);
    EXPECT_EQ(source_->progress(), 1.0F);
    EXPECT_EQ(source_->readPackets(4), 0);
    EXPECT_EQ(source_->readPackets(4), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "end", "end"}));
    EXPECT_EQ(sink_->allBytes(), file_.audio);
    EXPECT_EQ(sink_->chunks[2].packetNum, 2U);
    EXPECT_FALSE(sink_->chunks[2].hasDescriptions);
    EXPECT_EQ(file_.descriptions, nullptr);
}

TEST_F(FileSourceTest, callsFlowStartUntilAPacketWasRead) {
    open();
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(source_->readPackets(1), 1);
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "audio", "end"}));

    file_.audio.clear();
    file_.setProperty(kAudioFilePropertyAudioDataPacketCount, std::uint64_t{0});
    open();
    source_->readPackets(5);
    source_->readPackets(5);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "end"}));
    EXPECT_FALSE(std::isfinite(source_->progress()));
}

TEST_F(FileSourceTest, readsTheSamePacketsAgainAfterAFailure) {
    open();
    source_->readPackets(3);
    file_.failures["read"] = kAudioFileIOError;
    expectThrown(AudioFileError::read(kAudioFileIOError), [&] { source_->readPackets(3); });
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio"}));
    file_.failures.clear();
    source_->readPackets(7);
    EXPECT_EQ(sink_->allBytes(), file_.audio);
}

TEST_F(FileSourceTest, stopsTheProcessAtImpossibleCounts) {
    open();
    EXPECT_DEATH(source_->readPackets(-1), "Fatal error: .*FileSource.cpp");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 32U), "Fatal error: .*FileSource.cpp");
    EXPECT_DEATH(source_->readPackets(0x20000000), "Fatal error: Arithmetic overflow");
}

TEST_F(FileSourceTest, stopsTheProcessIfAPropertyHasNoSize) {
    open();
    file_.properties.clear();
    EXPECT_DEATH(source_->outDataFormat(), "^Fatal error: : file FileSource.cpp");
    EXPECT_DEATH(source_->packetSizeUpperBound(), "^Fatal error: : file FileSource.cpp");
    EXPECT_DEATH(source_->progress(), "^Fatal error: : file FileSource.cpp");
}

}  // namespace
}  // namespace zav::test
