#include "ZAVAudioStreaming/sources/FileSource.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "tests/support/ExpectThrown.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/ScriptedAudioFile.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Calls = std::vector<std::string>;

/// A file of ten packets of 8 bytes.
class FileSourceTest : public testing::Test {
 protected:
    FileSourceTest() {
        resetAudioFile();
        scriptedFile().format = pcmFormat(44100, 4);
        scriptedFile().packetSize = 8;
        scriptedFile().audio = testBytes(80);
    }

    void open() {
        source_ = makeNode<FileSource>("folder/file.wav");
        sink_ = makeNode<RecordingSink>(source_);
    }

    std::shared_ptr<FileSource> source_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(FileSourceTest, opensForReadingWithoutAHintAndCloses) {
    open();
    EXPECT_EQ(scriptedFile().path, "folder/file.wav");
    EXPECT_EQ(scriptedFile().permissions, kAudioFileReadPermission);
    EXPECT_EQ(scriptedFile().typeHint, 0U);
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(44100, 4));
    scriptedFile().format = pcmFormat(8000, 1);
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(8000, 1));
    EXPECT_EQ(source_->packetSizeUpperBound(), 8U);

    // The file is closed before the targets are released.
    class Watcher : public PeripheralSink {
     public:
        using PeripheralSink::PeripheralSink;
        ~Watcher() override { scriptedFile().calls.emplace_back("target released"); }
    };
    makeNode<Watcher>(source_);
    scriptedFile().calls.clear();
    source_.reset();
    EXPECT_EQ(scriptedFile().calls, (Calls{"close", "target released"}));
}

TEST_F(FileSourceTest, throwsTheStatusOfAFileThatDoesNotOpen) {
    scriptedFile().failures["open"] = kAudioFileUnsupportedFileTypeError;
    expectThrown(AudioFileError::open(kAudioFileUnsupportedFileTypeError), [&] { open(); });
    EXPECT_EQ(scriptedFile().calls, Calls{"open"});
    scriptedFile().failures.clear();
    scriptedFile().givesNoID = true;
    EXPECT_DEATH(open(), "Fatal error: ");
}

TEST_F(FileSourceTest, pushesTheFileInTheChunksThatAreAskedFor) {
    open();
    EXPECT_EQ(source_->progress(), 0.0F);
    EXPECT_EQ(source_->readPackets(4), 4);
    EXPECT_EQ(scriptedFile().readByteBudget, 32U);
    EXPECT_EQ(source_->readPackets(4), 4);
    EXPECT_FLOAT_EQ(source_->progress(), 0.8F);
    EXPECT_EQ(source_->readPackets(4), 2);
    EXPECT_EQ(source_->progress(), 1.0F);
    EXPECT_EQ(source_->readPackets(4), 0);
    EXPECT_EQ(source_->readPackets(4), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "end", "end"}));
    EXPECT_EQ(sink_->allBytes(), scriptedFile().audio);
    EXPECT_EQ(sink_->chunks[2].packetNum, 2U);
    EXPECT_FALSE(sink_->chunks[2].hasDescriptions);
    EXPECT_EQ(scriptedFile().descriptions, nullptr);
}

TEST_F(FileSourceTest, announcesTheStartUntilAPacketWasRead) {
    open();
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(source_->readPackets(1), 1);
    EXPECT_EQ(source_->readPackets(0), 0);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "audio", "end"}));

    scriptedFile().audio.clear();
    open();
    source_->readPackets(5);
    source_->readPackets(5);
    EXPECT_EQ(sink_->calls, (Calls{"start", "end", "start", "end"}));
    EXPECT_FALSE(std::isfinite(source_->progress()));
}

TEST_F(FileSourceTest, staysWhereItIsWhenAReadFails) {
    open();
    source_->readPackets(3);
    scriptedFile().failures["read"] = kAudioFileIOError;
    expectThrown(AudioFileError::read(kAudioFileIOError), [&] { source_->readPackets(3); });
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio"}));
    scriptedFile().failures.clear();
    source_->readPackets(7);
    EXPECT_EQ(sink_->allBytes(), scriptedFile().audio);
}

TEST_F(FileSourceTest, stopsTheProcessAtImpossibleCountsAndWhenAPropertyHasNoSize) {
    open();
    EXPECT_DEATH(source_->readPackets(-1), "Fatal error: .*FileSource.cpp");
    EXPECT_DEATH(source_->readPackets(std::int64_t{1} << 32U), "Fatal error: .*FileSource.cpp");
    EXPECT_DEATH(source_->readPackets(0x20000000), "Fatal error: Arithmetic overflow");
    for (const auto property :
         {kAudioFilePropertyDataFormat, kAudioFilePropertyPacketSizeUpperBound,
          kAudioFilePropertyAudioDataPacketCount}) {
        scriptedFile().propertyFailures[property] = kAudioFileUnsupportedPropertyError;
    }
    EXPECT_DEATH(source_->outDataFormat(), "^Fatal error: : file FileSource.cpp");
    EXPECT_DEATH(source_->packetSizeUpperBound(), "^Fatal error: : file FileSource.cpp");
    EXPECT_DEATH(source_->progress(), "^Fatal error: : file FileSource.cpp");
}

}  // namespace
}  // namespace zav::test
