#include "ZAVAudioStreaming/sinks/FileSink.hpp"

#include <gtest/gtest.h>

#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/ScriptedAudioFile.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

class FileSinkTest : public testing::Test {
 protected:
    FileSinkTest() {
        resetAudioFile();
        source_->setOutDataFormat(pcmFormat(16000, 1));
        sink_ = makeNode<FileSink>(source_, "out.caf", kAudioFileCAFType);
    }

    void push(std::uint64_t size, std::uint64_t packetNum,
              const AudioStreamPacketDescription* descriptions = nullptr) {
        const auto bytes = testBytes(size);
        source_->downstreams().receiveAudio(bytes.data(), size, packetNum, descriptions);
    }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<FileSink> sink_;
};

TEST_F(FileSinkTest, createsTheFileAtFlowStartInTheFormatOfThatMoment) {
    EXPECT_TRUE(scriptedFile().calls.empty());
    EXPECT_EQ(sink_->fileURL(), "out.caf");
    EXPECT_EQ(sink_->fileFormat(), kAudioFileCAFType);
    source_->setOutDataFormat(pcmFormat(48000, 2));
    sink_->onAudioStreamFlowStart();
    EXPECT_EQ(scriptedFile().path, "out.caf");
    EXPECT_EQ(scriptedFile().createdType, kAudioFileCAFType);
    EXPECT_EQ(scriptedFile().createdFormat, pcmFormat(48000, 2));
    EXPECT_EQ(scriptedFile().flags, kAudioFileFlags_EraseFile);
}

TEST_F(FileSinkTest, writesOnlyBetweenFlowStartAndFlowEnd) {
    push(4, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
    sink_->onAudioStreamFlowStart();
    push(4, 2);
    EXPECT_EQ(sink_->estimatedDuration(), 4.0);
    sink_->onAudioStreamFlowEnd();
    push(4, 2);
    EXPECT_EQ(scriptedFile().calls, (std::vector<std::string>{"create", "write", "get", "close"}));
    EXPECT_EQ(scriptedFile().written, testBytes(4));
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
}

TEST_F(FileSinkTest, numbersPacketsOnOverFlowsByWhatWasWritten) {
    const AudioStreamPacketDescription descriptions[3] = {};
    sink_->onAudioStreamFlowStart();
    push(20, 3, descriptions);
    EXPECT_EQ(scriptedFile().descriptions, descriptions);
    scriptedFile().packetsReported = 128;  // a decoder's chunk: one SBC frame of 128 PCM packets
    push(256, 1);
    sink_->onAudioStreamFlowEnd();
    sink_->onAudioStreamFlowStart();
    push(20, 3);
    EXPECT_EQ(scriptedFile().writeIndices, (std::vector<std::int64_t>{0, 3, 131}));
    EXPECT_EQ(scriptedFile().writePacketCounts, (std::vector<std::uint32_t>{3, 1, 3}));
}

TEST_F(FileSinkTest, closesTheFileOfAnUnfinishedFlow) {
    sink_->onAudioStreamFlowStart();
    sink_->onAudioStreamFlowStart();
    EXPECT_EQ(scriptedFile().calls, (std::vector<std::string>{"create", "close", "create"}));
    source_.reset();
    sink_.reset();
    EXPECT_EQ(scriptedFile().count("close"), 2U);
}

TEST_F(FileSinkTest, handsOnAMagicCookie) {
    const auto cookie = testBytes(39);
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "Fatal error: .*FileSink.cpp");
    sink_->onAudioStreamFlowStart();
    sink_->setMagicCookie(cookie);
    EXPECT_EQ(scriptedFile().cookie, cookie);
    scriptedFile().failures["set"] = kAudioFileUnsupportedPropertyError;
    EXPECT_DEATH(sink_->setMagicCookie(cookie), "^Fatal error: : file FileSink.cpp");
}

TEST_F(FileSinkTest, stopsTheProcessWhenItCannotGoOn) {
    EXPECT_DEATH(sink_->onAudioStreamFlowEnd(), "Fatal error: .*FileSink.cpp");
    scriptedFile().failures["create"] = kAudioFileUnsupportedDataFormatError;
    EXPECT_DEATH(sink_->onAudioStreamFlowStart(), "^Fatal error: Creating audio file failed: file");

    scriptedFile().failures = {{"write", kAudioFileDiskFullError}};
    sink_->onAudioStreamFlowStart();
    EXPECT_DEATH(push(4, 2), "^Fatal error: Writing packets to file failed: -34: file");
    const std::byte nothing{};
    EXPECT_DEATH(sink_->receiveAudio(&nothing, 1, std::uint64_t{1} << 32U, nullptr),
                 "Fatal error: Not enough bits");
    EXPECT_DEATH(sink_->receiveAudio(&nothing, std::uint64_t{1} << 32U, 1, nullptr),
                 "Fatal error: Not enough bits");
    scriptedFile().propertyFailures[kAudioFilePropertyEstimatedDuration] = -1;
    EXPECT_DEATH(sink_->estimatedDuration(), "^Fatal error: : file FileSink.cpp");

    // A flow whose file does not close well has ended all the same.
    scriptedFile().failures = {{"close", kAudioFileIOError}};
    sink_->onAudioStreamFlowEnd();
    EXPECT_EQ(sink_->estimatedDuration(), 0.0);
}

}  // namespace
}  // namespace zav::test
