// Writing compressed files through the service.

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/CompressedStream.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/ResourceLimit.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

class WrittenCompressedFile : public testing::Test {
 protected:
    CompressedSampleFolder samples_;
    const std::filesystem::path path_ = samples_ / "written";
};

/// Samples, and the types that each can be copied to.
const std::vector<std::pair<std::string, std::vector<AudioFileTypeID>>>& copies() {
    static const std::vector<std::pair<std::string, std::vector<AudioFileTypeID>>> all = {
        {"lame.mp3", {kAudioFileMP3Type, kAudioFileMPEG4Type, kAudioFileCAFType}},
        {"slow.mp3", {kAudioFileMP3Type, kAudioFileCAFType}},
        {"adts.aac", {kAudioFileAAC_ADTSType, kAudioFileM4AType, kAudioFileMPEG4Type}},
        {"aac.m4a", {kAudioFileM4AType, kAudioFileMPEG4Type}},
        {"alac.m4a", {kAudioFileM4AType, kAudioFileMPEG4Type, kAudioFileCAFType}},
        {"free.flac", {kAudioFileFLACType, kAudioFileOggType}},
        {"vorbis.ogg", {kAudioFileOggType}},
        {"tools.opus", {kAudioFileOggType, kAudioFileMPEG4Type}},
        {"long.opus", {kAudioFileOggType}},
        {"cinema.ac3", {kAudioFileAC3Type, kAudioFileMPEG4Type}},
        {"phone.amr", {kAudioFileAMRType}},
    };
    return all;
}

// What other programs find in copies is tested in tests/apps/compressed_files.sh.
TEST_F(WrittenCompressedFile, isCopiedPacketByPacket) {
    for (const auto& [sample, types] : copies()) {
        const CompressedStream source = readStream(samples_[sample]);
        for (const AudioFileTypeID type : types) {
            SCOPED_TRACE(sample + " to " + fourCharText(type));
            double written = 0;
            {
                const SilentStderr silent;
                OpenFile file = create(path_, type, source.format);
                ASSERT_EQ(writeStream(file, source), noErr);
                EXPECT_EQ(packetCount(file), source.places.size());
                written = durationOf(file);
                EXPECT_EQ(close(file), noErr);
            }
            const CompressedStream back = readStream(path_);
            EXPECT_EQ(back.format, source.format);
            EXPECT_TRUE(back.bytes == source.bytes);
            EXPECT_TRUE(back.places == source.places);
            EXPECT_EQ(typeOf(open(path_)), type);
            // The writer was not given the priming. Opus' cookie contains it, and a Xing header
            // always stands for the delay of the decoder.
            const double priming = source.format.mFormatID == kAudioFormatOpus ? 312
                                   : type == kAudioFileMP3Type                 ? 529
                                                                               : 0;
            EXPECT_NEAR(durationOf(open(path_)) + priming / source.format.mSampleRate, written,
                        1e-6);
        }
    }
}

TEST_F(WrittenCompressedFile, losesAtMostTheLastSecondIfItsWriterIsKilled) {
    for (const auto& [sample, types] : copies()) {
        const CompressedStream source = readStream(samples_[sample]);
        for (const AudioFileTypeID type : types) {
            if (type == kAudioFileCAFType) {
                continue;  // cannot be read before it is closed
            }
            SCOPED_TRACE(sample + " to " + fourCharText(type));
            const SilentStderr silent;
            writeAndBeKilled([&] {
                OpenFile file = create(path_, type, source.format);
                EXPECT_EQ(writeStream(file, source), noErr);
                return file;
            });
            EXPECT_GE(durationOf(open(path_)), durationOf(open(samples_[sample])) - 1.0);
            const CompressedStream back = readStream(path_);
            EXPECT_LE(back.places.size(), source.places.size());
            ASSERT_LE(back.bytes.size(), source.bytes.size());
            EXPECT_TRUE(std::equal(back.bytes.begin(), back.bytes.end(), source.bytes.begin()));
            if (type != kAudioFileMP3Type) {  // its number of packets is lost
                EXPECT_EQ(complaintsOf(path_), "");
            }
        }
    }
}

TEST_F(WrittenCompressedFile, isRefusedBeforeTheOldFileIsTouched) {
    const Bytes old = testBytes(10);
    writeFile(path_, old);
    constexpr AudioFileTypeID kNoType = fourCharCode("none");
    for (const auto& [type, formatID, rate, channels] :
         std::vector<std::tuple<AudioFileTypeID, std::uint32_t, double, std::uint32_t>>{
             {kAudioFileCAFType, kAudioFormatMPEG4AAC, 44100, 2},
             {kAudioFileCAFType, kAudioFormatOpus, 44100, 2},
             {kAudioFileCAFType, kAudioFormatFLAC, 44100, 2},
             {kAudioFileM4AType, kAudioFormatOpus, 44100, 2},
             {kAudioFileM4AType, kAudioFormatLinearPCM, 44100, 2},
             {kAudioFileMP3Type, kAudioFormatMPEG4AAC, 44100, 2},
             {kAudioFileOggType, kAudioFormatMPEGLayer3, 44100, 2},
             {kAudioFileWAVEType, kAudioFormatMPEGLayer3, 44100, 2},
             {kAudioFileFLACType, fourCharCode("none"), 44100, 2},
             {kAudioFileMP3Type, kAudioFormatMPEGLayer3, 0, 2},
             {kAudioFileMP3Type, kAudioFormatMPEGLayer3, 44100.5, 2},
             {kAudioFileMP3Type, kAudioFormatMPEGLayer3, 44100, 0},
             {kAudioFileOggType, kAudioFormatOpus, 48000, 3},
             // ADTS headers have no codes for these.
             {kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 44100, 7},
             {kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 10000, 2},
             {kNoType, kAudioFormatMPEGLayer3, 44100, 2},
         }) {
        SCOPED_TRACE(fourCharText(formatID) + " in " + fourCharText(type));
        create(path_, type, compressedFormat(formatID, rate, channels),
               type == kNoType ? kAudioFileUnsupportedFileTypeError
                               : kAudioFileUnsupportedDataFormatError);
    }
    EXPECT_EQ(readFile(path_), old);
}

TEST_F(WrittenCompressedFile, takesOnlyWholePacketsInTheirOrder) {
    const CompressedStream source = readStream(samples_["plain.mp3"]);
    const Bytes first = source.packet(0);
    const OpenFile file = create(path_, kAudioFileMP3Type, source.format);
    EXPECT_EQ(writePacket(file, source, 1), kAudioFileInvalidPacketOffsetError);
    EXPECT_EQ(write(file, 0, first, 1), noErr);
    EXPECT_EQ(writePacket(file, source, 0), kAudioFileInvalidPacketOffsetError);
    EXPECT_EQ(write(file, 1, first, 2), kAudioFileParameterError);
    const auto size = static_cast<std::uint32_t>(first.size());
    for (const AudioStreamPacketDescription& place :
         {AudioStreamPacketDescription{1, 0, size}, AudioStreamPacketDescription{-1, 0, 1},
          AudioStreamPacketDescription{0, 0, 0}}) {
        std::uint32_t count = 1;
        EXPECT_EQ(AudioFileWritePackets(file.get(), false, size, &place, 1, &count, first.data()),
                  kAudioFileParameterError);
        EXPECT_EQ(count, 0U);
    }
    EXPECT_EQ(packetCount(file), 1U);
    EXPECT_EQ(setCookie(file, testBytes(10)), kAudioFileUnsupportedPropertyError);

    // Packets of constant size are counted by their bytes.
    CompressedStream constant = readStream(samples_["cinema.ac3"]);
    constant.format.mBytesPerPacket = constant.places[0].mDataByteSize;
    const OpenFile other = create(path_, kAudioFileAC3Type, constant.format);
    EXPECT_EQ(write(other, 0, constant.packet(0), 5), noErr);
    EXPECT_EQ(packetCount(other), 1U);
}

TEST_F(WrittenCompressedFile, reportsAFullDisk) {
    const CompressedStream source = readStream(samples_["alac.m4a"]);
    CompressedStream beginning = source;
    beginning.places.resize(2);
    for (const AudioFileTypeID type : {kAudioFileM4AType, kAudioFileCAFType}) {
        OpenFile file = create(path_, type, source.format);
        {
            const ResourceLimit limit(RLIMIT_FSIZE, 65536);
            EXPECT_EQ(writeStream(file, source), kAudioFileDiskFullError);
            close(file);
        }
        // Some parts are written only at the end, and fail there.
        file = create(path_, type, source.format);
        EXPECT_EQ(writeStream(file, beginning), noErr);
        const ResourceLimit limit(RLIMIT_FSIZE, 100);
        EXPECT_EQ(close(file), kAudioFileDiskFullError);
    }
}

}  // namespace
}  // namespace zav::test
