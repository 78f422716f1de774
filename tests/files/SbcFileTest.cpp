#include <gtest/gtest.h>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

Bytes framesWithBitpool(std::uint8_t bitpool, std::size_t frameCount) {
    SBCCoding::SBCConfiguration configuration;
    configuration.bitpool = bitpool;
    return SbcLoop(configuration).encode(testPcm(128 * frameCount));
}

class SbcFile : public testing::Test {
 protected:
    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "file";
};

TEST_F(SbcFile, isDescribedByItsFirstFrame) {
    writeFile(path_, framesWithBitpool(32, 1000));
    const OpenFile file = open(path_);
    EXPECT_EQ(formatOf(file), sbcFormat(16000, 1, 0x00200B00, 72));
    EXPECT_EQ(typeOf(file), kAudioFileSBCType);
    EXPECT_EQ(packetCount(file), 1000U);
    EXPECT_EQ(durationOf(file), 8.0);
    std::uint32_t size = 0;
    EXPECT_EQ(
        AudioFileGetPropertyInfo(file.get(), kAudioFilePropertyMagicCookieData, &size, nullptr),
        kAudioFileUnsupportedPropertyError);
}

TEST_F(SbcFile, readsFramesOfDifferentLengths) {
    const Bytes longer = framesWithBitpool(64, 500);       // 136 bytes each
    const Bytes all = joined({framesWithBitpool(32, 900),  // 72 each, more than one read window
                              longer, framesWithBitpool(8, 2)});  // 24
    writeFile(path_, all);

    const OpenFile file = open(path_);
    EXPECT_EQ(packetCount(file), 1402U);
    EXPECT_EQ(property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize), 136U);
    EXPECT_EQ(readAll(file), all);
    EXPECT_EQ(read(file, 900, 500), longer);

    std::vector<AudioStreamPacketDescription> places(4);
    std::uint32_t byteCount = 136 + 2 * 24;
    std::uint32_t count = 4;
    Bytes buffer(byteCount);
    EXPECT_EQ(AudioFileReadPacketData(file.get(), false, &byteCount, places.data(), 1399, &count,
                                      buffer.data()),
              noErr);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(byteCount, 184U);
    EXPECT_EQ(places[1], (AudioStreamPacketDescription{136, 0, 24}));
    EXPECT_EQ(places[2], (AudioStreamPacketDescription{160, 0, 24}));
    // No part of a packet is read.
    byteCount = 135;
    count = 4;
    EXPECT_EQ(AudioFileReadPacketData(file.get(), false, &byteCount, nullptr, 1399, &count,
                                      buffer.data()),
              noErr);
    EXPECT_EQ(count, 0U);
}

TEST_F(SbcFile, endsAtAFrameThatIsCutShort) {
    const Bytes frames = framesWithBitpool(32, 2);
    writeFile(path_, std::span(frames).first(72 + 71));
    EXPECT_EQ(packetCount(open(path_)), 1U);
    EXPECT_TRUE(read(open(path_), 1, 1).empty());
    writeFile(path_, std::span(frames).first(71));
    open(path_, kAudioFileUnsupportedFileTypeError);
}

TEST_F(SbcFile, isWrittenFrameByFrameWithoutGaps) {
    const Bytes frames = framesWithBitpool(32, 10);
    const Bytes longer = framesWithBitpool(64, 2);
    {
        const OpenFile file = create(path_, kAudioFileSBCType, sbcFormat(16000, 1, 0x200B00, 72));
        EXPECT_EQ(write(file, 1, frames, 10), kAudioFileInvalidPacketOffsetError);
        EXPECT_EQ(write(file, 0, frames, 10), noErr);
        EXPECT_EQ(write(file, 0, frames, 10), kAudioFileInvalidPacketOffsetError);
        EXPECT_EQ(write(file, 10, longer, 2), noErr);
        EXPECT_EQ(write(file, 12, std::span(frames).first(100), 1), kAudioFileParameterError);
        EXPECT_EQ(packetCount(file), 12U);
        EXPECT_EQ(property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize), 136U);
    }
    EXPECT_EQ(readFile(path_), joined({frames, longer}));
    create(path_, kAudioFileSBCType, pcmFormat(16000, 1), kAudioFileUnsupportedDataFormatError);
}

}  // namespace
}  // namespace zav::test
