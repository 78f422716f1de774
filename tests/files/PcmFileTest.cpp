// Reading and writing PCM files through the service. tests/apps/pcm_containers.sh checks that other
// programs read the same bytes.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/ResourceLimit.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

class PcmFile : public testing::Test {
 protected:
    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "file";
};

TEST_F(PcmFile, givesBackEveryByteInEveryKindOfFile) {
    forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
        for (const std::uint32_t channels : {1U, 2U, 3U}) {
            const auto format = encoding.format(22050, channels);
            const Bytes audio = testBytes(std::size_t{1001} * format.mBytesPerFrame);
            {
                const OpenFile file = create(path_, fileCase.type, format);
                const std::size_t cut = std::size_t{300} * format.mBytesPerFrame;
                EXPECT_EQ(write(file, 0, std::span(audio).subspan(0, cut)), noErr);
                EXPECT_EQ(write(file, 300, std::span(audio).subspan(cut)), noErr);
                EXPECT_EQ(packetCount(file), 1001U);
            }
            const OpenFile file = open(path_);
            EXPECT_EQ(formatOf(file), format);
            EXPECT_EQ(typeOf(file), fileCase.type);
            EXPECT_EQ(packetCount(file), 1001U);
            EXPECT_EQ(property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount),
                      audio.size());
            EXPECT_EQ(property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize),
                      format.mBytesPerFrame);
            EXPECT_DOUBLE_EQ(durationOf(file), 1001 / 22050.0);
            EXPECT_EQ(readAll(file), audio);
            // Beyond the end, backwards, and at the end.
            const auto twoFrom = [&](std::size_t first) {
                return joined({std::span(audio).subspan(format.mBytesPerFrame * first,
                                                        format.mBytesPerFrame * 2U)});
            };
            EXPECT_EQ(read(file, 999, 50), twoFrom(999));
            EXPECT_EQ(read(file, 7, 2), twoFrom(7));
            EXPECT_TRUE(read(file, 1001, 1).empty());
            EXPECT_TRUE(read(file, 1LL << 40, 1).empty());
        }
    });
}

TEST_F(PcmFile, refusesOtherEncodingsBeforeTheOldFileIsTouched) {
    const Bytes old = testBytes(10);
    writeFile(path_, old);
    const auto expectRefused = [&](AudioFileTypeID type,
                                   const AudioStreamBasicDescription& format) {
        create(path_, type, format, kAudioFileUnsupportedDataFormatError);
        EXPECT_EQ(readFile(path_), old);
    };
    // tests/apps/pcm_containers.sh tests the PCM encodings that a type cannot hold.
    for (const PcmFileCase& fileCase : pcmFileCases()) {
        expectRefused(fileCase.type, sbcFormat(16000, 1, 0x00200B00, 72));
        expectRefused(fileCase.type, {});
    }
    for (const AudioStreamBasicDescription& format : wrongPcmFormats()) {
        expectRefused(kAudioFileWAVEType, format);
    }
    create(path_, fourCharCode("none"), pcmFormat(44100, 2), kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(readFile(path_), old);
}

TEST_F(PcmFile, leavesSilenceBeforeAPacketBeyondTheEnd) {
    forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
        const auto format = encoding.format(8000, 2);
        // More than one step of the writer's filling, and not a multiple of it.
        constexpr std::uint32_t kGap = 50001;
        const Bytes audio = testBytes(std::size_t{10} * format.mBytesPerFrame);
        {
            const OpenFile file = create(path_, fileCase.type, format);
            EXPECT_EQ(write(file, kGap, audio), noErr);
        }
        const OpenFile file = open(path_);
        EXPECT_EQ(packetCount(file), kGap + 10U);
        EXPECT_EQ(read(file, kGap, 10), audio);
        std::byte silence{0};
        if (encoding.name == "u8") {
            silence = std::byte{0x80};
        } else if (encoding.name == "alaw") {
            silence = std::byte{0xD5};
        } else if (encoding.name == "ulaw") {
            silence = std::byte{0xFF};
        }
        EXPECT_EQ(read(file, 0, kGap), Bytes(std::size_t{kGap} * format.mBytesPerFrame, silence));
    });
}

TEST_F(PcmFile, overwritesPacketsThatExist) {
    {
        const OpenFile file = create(path_, kAudioFileWAVEType, pcmFormat(8000, 1));
        EXPECT_EQ(write(file, 0, Bytes(20, std::byte{1})), noErr);
        EXPECT_EQ(write(file, 8, Bytes(8, std::byte{2})), noErr);  // beyond the old end
        EXPECT_EQ(write(file, 1, Bytes(2, std::byte{3})), noErr);
        EXPECT_EQ(packetCount(file), 12U);
        EXPECT_EQ(write(file, 12, Bytes(2, std::byte{4})), noErr);  // at the end, after going back
    }
    EXPECT_EQ(readAll(open(path_)), bytesFrom({1, 1, 3, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                               1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 4, 4}));
}

TEST_F(PcmFile, countsPacketsByTheirBytes) {
    const OpenFile file = create(path_, kAudioFileWAVEType, pcmFormat(8000, 1));
    const Bytes odd(3);
    std::uint32_t packets = 2;
    EXPECT_EQ(AudioFileWritePackets(file.get(), false, 3, nullptr, 0, &packets, odd.data()),
              kAudioFileParameterError);
    EXPECT_EQ(packets, 0U);
    // A decoder's chunk of 2 SBC frames is 4 PCM packets.
    packets = 2;
    const Bytes pcm(8);
    EXPECT_EQ(AudioFileWritePackets(file.get(), false, 8, nullptr, 0, &packets, pcm.data()), noErr);
    EXPECT_EQ(packets, 4U);
    EXPECT_EQ(packetCount(file), 4U);
}

TEST_F(PcmFile, exceeds4GiBOnlyInTypesWith64BitSizes) {
    constexpr std::int64_t kAt5GiB = (std::int64_t{5} << 30U) / 4;
    const Bytes audio = testBytes(400);
    for (const PcmFileCase& fileCase : pcmFileCases()) {
        SCOPED_TRACE(fourCharText(fileCase.type));
        const bool isBig =
            fileCase.type == kAudioFileAIFFType || fileCase.type == kAudioFileNextType;
        const auto format = pcmFormat(48000, 2, 16, isBig ? 6 : 4);
        const bool isLarge = fileCase.type == kAudioFileRF64Type ||
                             fileCase.type == kAudioFileWave64Type ||
                             fileCase.type == kAudioFileCAFType;
        {
            // The gap is a hole in the file and takes no room on the disk.
            const OpenFile file = create(path_, fileCase.type, format);
            EXPECT_EQ(write(file, 0, audio), noErr);
            EXPECT_EQ(write(file, kAt5GiB, audio),
                      isLarge ? noErr : kAudioFileDoesNotAllow64BitDataSizeError);
            EXPECT_EQ(write(file, INT64_MAX, audio), kAudioFileDoesNotAllow64BitDataSizeError);
            // Just below 4 GiB, every type works.
            if (!isLarge) {
                EXPECT_EQ(write(file, (std::int64_t{1} << 30U) - 2000, audio), noErr);
            }
        }
        const OpenFile file = open(path_);
        const std::int64_t last = isLarge ? kAt5GiB : (std::int64_t{1} << 30U) - 2000;
        EXPECT_EQ(packetCount(file), static_cast<std::uint64_t>(last) + 100);
        EXPECT_EQ(read(file, last, 100), audio);
        EXPECT_EQ(read(file, 0, 100), audio);
    }
}

class KilledWriter : public PcmFile, public testing::WithParamInterface<int> {};

TEST_P(KilledWriter, leavesAFileThatIsReadableUpToTheLastSecond) {
    constexpr std::uint32_t kRate = 8000;
    forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
        const auto format = encoding.format(kRate, 4);
        const std::size_t chunkSize = std::size_t{100} * format.mBytesPerFrame;
        // 4.4 seconds, at several volumes: after an old header, quiet audio looks like many small
        // chunks.
        Bytes audio = testBytes(355 * chunkSize);
        for (std::byte& byte : audio) {
            byte &= static_cast<std::byte>(GetParam());
        }
        writeAndBeKilled([&] {
            OpenFile file = create(path_, fileCase.type, format);
            for (std::size_t i = 0; i < 355; ++i) {
                EXPECT_EQ(write(file, static_cast<std::int64_t>(100 * i),
                                std::span(audio).subspan(i * chunkSize, chunkSize)),
                          noErr);
            }
            return file;
        });
        const OpenFile file = open(path_);
        ASSERT_NE(file, nullptr);
        EXPECT_GE(packetCount(file), 35500U - kRate);
        EXPECT_LE(packetCount(file), 35500U);
        const Bytes found = readAll(file);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), audio.begin()));
    });
}

INSTANTIATE_TEST_SUITE_P(, KilledWriter, testing::Values(0xFF, 0x01, 0x00),
                         testing::PrintToStringParamName());

TEST_F(PcmFile, onAFullDiskIsReadableUpToItsEnd) {
    constexpr std::uint32_t kLimit = 65536;
    constexpr std::uint32_t kLongestHeader = 4140;  // CAF's, with room for a magic cookie
    forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
        const auto format = encoding.format(48000, 2);
        const Bytes audio = testBytes(std::size_t{48000} * format.mBytesPerFrame);
        const OpenFile writer = create(path_, fileCase.type, format);
        {
            const ResourceLimit limit(RLIMIT_FSIZE, kLimit);
            EXPECT_EQ(write(writer, 0, std::span(audio).first(40 * std::size_t{48})), noErr);
            EXPECT_EQ(write(writer, 40 * 48 / format.mBytesPerFrame,
                            std::span(audio).subspan(40 * std::size_t{48})),
                      kAudioFileDiskFullError);
        }
        // The writer has not been closed, as after a fatal stop.
        const Bytes found = readAll(open(path_));
        EXPECT_GE(found.size(), kLimit - kLongestHeader - format.mBytesPerFrame);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), audio.begin()));
    });
}

TEST_F(PcmFile, keepsAMagicCookieInCafOnly) {
    const auto format = pcmFormat(44100, 1);
    const Bytes audio = testBytes(100000);
    for (const std::size_t size :
         {1U, 39U, 4004U, 4005U, 70000U}) {  // 4004 bytes fit into the header
        const Bytes cookie = testBytes(size, 7);
        {
            const OpenFile file = create(path_, kAudioFileCAFType, format);
            EXPECT_EQ(write(file, 0, audio), noErr);
            std::uint32_t cookieSize = 1;
            std::uint32_t isWritable = 0;
            EXPECT_EQ(AudioFileGetPropertyInfo(file.get(), kAudioFilePropertyMagicCookieData,
                                               &cookieSize, &isWritable),
                      noErr);
            EXPECT_EQ(cookieSize, 0U);
            EXPECT_EQ(isWritable, 1U);
            // The second cookie replaces the first, and stays when the header is written again.
            EXPECT_EQ(setCookie(file, testBytes(3)), noErr);
            EXPECT_EQ(setCookie(file, cookie), noErr);
            EXPECT_EQ(write(file, 50000, audio), noErr);
        }
        const OpenFile file = open(path_);
        EXPECT_EQ(cookieOf(file), cookie);
        EXPECT_EQ(packetCount(file), 100000U);
        EXPECT_EQ(read(file, 50000, 50000), audio);
        EXPECT_EQ(setCookie(file, cookie), kAudioFilePermissionsError);
    }
    forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
        const OpenFile file = create(path_, fileCase.type, encoding.format(8000, 1));
        EXPECT_EQ(setCookie(file, testBytes(3)),
                  fileCase.type == kAudioFileCAFType ? noErr : kAudioFileUnsupportedPropertyError);
    });
}

TEST_F(PcmFile, ofAnotherProgramIsReadToTheEndOfItsAudioOrRefused) {
    const Bytes audio = testBytes(2000);
    struct Case {
        AudioFileTypeID type;
        std::size_t offset;  // of the bytes that are overwritten
        std::size_t length;
        std::uint8_t value;
        std::size_t padding;  // zeros after the audio
        OSStatus status;
    };
    for (const Case& test : {
             Case{kAudioFileWAVEType, 0, 0, 0, 100000, noErr},
             Case{kAudioFileWave64Type, 0, 0, 0, 100000, noErr},
             // The size of the audio: all bits are set by a program that writes into a pipe.
             Case{kAudioFileWAVEType, 40, 4, 0xFF, 0, noErr},
             Case{kAudioFileCAFType, 4084, 8, 0xFF, 0, noErr},
             // An unknown encoding.
             Case{kAudioFileCAFType, 28, 4, 'x', 0, kAudioFileUnsupportedDataFormatError},
             // A low bit of the rate, so that it is no whole number: a double in CAF, 80 bits in
             // AIFF.
             Case{kAudioFileCAFType, 24, 1, 0x40, 0, kAudioFileUnsupportedDataFormatError},
             Case{kAudioFileAIFFType, 32, 1, 0x40, 0, kAudioFileUnsupportedDataFormatError},
         }) {
        SCOPED_TRACE(fourCharText(test.type) + " " + std::to_string(test.offset));
        const auto flags = test.type == kAudioFileAIFFType ? 6U : 4U;
        EXPECT_EQ(write(create(path_, test.type, pcmFormat(44100, 1, 16, flags)), 0, audio), noErr);
        Bytes bytes = readFile(path_);
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(test.offset), test.length,
                    std::byte{test.value});
        bytes.resize(bytes.size() + test.padding);
        writeFile(path_, bytes);
        const OpenFile file = open(path_, test.status);
        if (file != nullptr) {
            EXPECT_EQ(readAll(file), audio);
        }
    }
}

}  // namespace
}  // namespace zav::test
