// A file of any bytes gives a status or readable audio, never a crash or a hang, and takes little
// memory.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/ResourceLimit.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

class BrokenFile : public testing::Test {
 protected:
    ~BrokenFile() override { ::close(memory_); }

    /// Opens the bytes as a file, reads every property and all packets. Returns the number of
    /// packets; empty if the file was refused.
    std::optional<std::uint64_t> readThrough(std::span<const std::byte> bytes) {
        EXPECT_EQ(::ftruncate(memory_, 0), 0);
        EXPECT_EQ(::pwrite(memory_, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
        AudioFileID id = nullptr;
        OSStatus status = AudioFileOpenURL("/proc/self/fd/" + std::to_string(memory_),
                                           kAudioFileReadPermission, 0, &id);
        if (status != noErr) {
            EXPECT_TRUE(status == kAudioFileUnsupportedFileTypeError ||
                        status == kAudioFileUnsupportedDataFormatError ||
                        status == kAudioFileInvalidFileError)
                << statusText(status);
            return std::nullopt;
        }
        const OpenFile file(id);
        const auto format = formatOf(file);
        const bool isCompressed =
            format.mFramesPerPacket != 1 && format.mFormatID != kAudioFormatSbc;
        const auto audioSize = property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount);
        // Packets of MP4 can overlap.
        EXPECT_TRUE(isCompressed || audioSize <= bytes.size()) << audioSize;
        EXPECT_LE(cookieOf(file).size(), bytes.size());
        EXPECT_GE(durationOf(file), 0);
        if (audioSize <= bytes.size()) {
            const auto audio =
                read(file, 0, static_cast<std::uint32_t>(packetCount(file)), &status);
            EXPECT_TRUE(!isCompressed || status == noErr) << statusText(status);
            EXPECT_TRUE(status != noErr || audio.size() == audioSize) << audio.size();
        }
        return packetCount(file);
    }

    struct GoodFile {
        std::string name;
        Bytes bytes;
        /// Compressed files are slow to read, so not every place is tried.
        bool isCompressed = false;
    };

    /// A small file of each kind that the library itself reads.
    std::vector<GoodFile> smallFiles() {
        std::vector<GoodFile> files;
        forEachKind([&](const PcmFileCase& fileCase, const Encoding& encoding) {
            if (encoding.name != fileCase.encodings.back() && encoding.bits != 16) {
                return;
            }
            const auto format = encoding.format(16000, 2);
            {
                const OpenFile file = create(path_, fileCase.type, format);
                EXPECT_EQ(write(file, 0, testBytes(64U * format.mBytesPerFrame)), noErr);
                if (fileCase.type == kAudioFileCAFType) {
                    EXPECT_EQ(setCookie(file, testBytes(6)), noErr);
                }
            }
            files.push_back({fourCharText(fileCase.type) + " " + encoding.name, readFile(path_)});
        });
        files.push_back({"SBC", SbcLoop(SBCCoding::SBCConfiguration()).encode(testPcm(1280))});
        return files;
    }

    /// The places at which the file is cut or changed.
    static std::vector<std::size_t> places(const GoodFile& good) {
        std::vector<std::size_t> places;
        for (std::size_t place = 0; place < good.bytes.size();) {
            places.push_back(place);
            const std::size_t sparseStep = place > 900 ? good.bytes.size() / 13 : 41;
            place += good.isCompressed ? sparseStep : 1;
        }
        return places;
    }

    std::vector<GoodFile> allFiles() {
        std::vector<GoodFile> files = smallFiles();
#ifdef ZAV_HAS_FFMPEG
        CompressedSampleFolder samples;
        for (const CompressedSample& sample : compressedSamples()) {
            files.push_back({sample.name, readFile(samples[sample.name]), true});
        }
#endif
        return files;
    }

 private:
    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "file";
    const int memory_ = ::memfd_create("broken", MFD_CLOEXEC);  // a file without a disk
};

TEST_F(BrokenFile, cutAnywhereGivesTheAudioThatIsThereOrAStatus) {
    for (const GoodFile& good : allFiles()) {
        SCOPED_TRACE(good.name);
        const SilentStderr silent;
        const auto whole = readThrough(good.bytes);
        ASSERT_TRUE(whole);
        std::uint64_t previous = 0;
        for (const std::size_t size : places(good)) {
            const std::uint64_t count = readThrough(std::span(good.bytes).first(size)).value_or(0);
            EXPECT_LE(count, *whole);
            EXPECT_TRUE(good.isCompressed || count >= previous) << "cut at " << size;
            previous = count;
        }
    }
}

TEST_F(BrokenFile, withAnyByteChangedDoesNoHarm) {
    for (const GoodFile& good : allFiles()) {
        SCOPED_TRACE(good.name);
        const SilentStderr silent;
        Bytes changed = good.bytes;
        for (const std::size_t place : places(good)) {
            // Values that break size arithmetic: 0xFFFFFFFF everywhere, and some single bytes in
            // the header.
            const auto at = changed.begin() + static_cast<std::ptrdiff_t>(place);
            const auto count = std::min<std::ptrdiff_t>(4, changed.end() - at);
            std::fill_n(at, count, std::byte{0xFF});
            readThrough(changed);
            std::copy_n(good.bytes.begin() + (at - changed.begin()), count, at);
            for (const unsigned value : {0x00U, 0x01U, 0x7FU, 0x80U, 0xFFU}) {
                if (!good.isCompressed && place < 200) {
                    *at = static_cast<std::byte>(value);
                    readThrough(changed);
                }
            }
            *at = good.bytes[place];
        }
    }
}

TEST_F(BrokenFile, ofManyTinyChunksIsRefused) {
    EXPECT_EQ(readThrough(joined(
                  {bytesFrom({'R', 'I', 'F', 'F', 0xFF, 0xFF, 0xFF, 0x7F, 'W', 'A', 'V', 'E'}),
                   Bytes(std::size_t{8} * 1000000)})),
              std::nullopt);
}

TEST_F(BrokenFile, thatIsNoAudioAtAllIsOfNoKnownType) {
    EXPECT_EQ(readThrough({}), std::nullopt);
    for (std::uint32_t seed = 1; seed < 200; ++seed) {
        EXPECT_EQ(readThrough(testBytes(seed * 7, seed)), std::nullopt);
    }
}

// tests/apps/errors.sh tests a missing file, a folder, a pipe and a full disk.
TEST(AudioFileService, reportsWhyAFileCannotBeReached) {
    const TemporaryFolder folder;
    AudioFileID id = nullptr;
    EXPECT_EQ(AudioFileOpenURL(folder / "missing", AudioFilePermissions{2}, 0, &id),
              kAudioFilePermissionsError);

    const auto format = pcmFormat(8000, 1);
    create(folder / "missing/file", kAudioFileWAVEType, format, kAudioFileFileNotFoundError);
    create(folder / "", kAudioFileWAVEType, format, kAudioFileNotAFileError);
    writeFile(folder / "old", testBytes(10));
    EXPECT_EQ(
        AudioFileCreateWithURL(folder / "old", kAudioFileWAVEType, &format, AudioFileFlags{0}, &id),
        kAudioFileExistsError);
    EXPECT_EQ(readFile(folder / "old"), testBytes(10));

    const ResourceLimit none(RLIMIT_NOFILE, 0);
    open(folder / "old", kAudioFileTooManyOpenError);
}

TEST(AudioFileService, checksItsArguments) {
    const TemporaryFolder folder;
    const auto path = folder / "file";
    const OpenFile file = create(path, kAudioFileWAVEType, pcmFormat(8000, 1));
    EXPECT_EQ(write(file, 0, testBytes(8)), noErr);
    EXPECT_EQ(write(file, -1, testBytes(8)), kAudioFileInvalidPacketOffsetError);
    OSStatus status = noErr;
    read(file, 0, 1, &status);
    EXPECT_EQ(status, kAudioFilePermissionsError);

    const OpenFile reader = open(path);
    EXPECT_EQ(write(reader, 0, testBytes(8)), kAudioFilePermissionsError);
    read(reader, -1, 1, &status);
    EXPECT_EQ(status, kAudioFileInvalidPacketOffsetError);
    std::uint32_t size = 3;
    std::uint32_t value = 0;
    EXPECT_EQ(
        AudioFileGetProperty(reader.get(), kAudioFilePropertyMaximumPacketSize, &size, &value),
        kAudioFileBadPropertySizeError);
    EXPECT_EQ(AudioFileGetPropertyInfo(reader.get(), fourCharCode("none"), &size, nullptr),
              kAudioFileUnsupportedPropertyError);
    EXPECT_EQ(AudioFileSetProperty(reader.get(), kAudioFilePropertyDataFormat, 4, &value),
              kAudioFileUnsupportedPropertyError);
    EXPECT_EQ(AudioFileClose(nullptr), kAudioFileNotOpenError);
}

}  // namespace
}  // namespace zav::test
