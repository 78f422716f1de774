// Whatever stands in a file: a status or readable audio, never a crash, a hang or much memory.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Bytes = std::vector<std::byte>;

class BrokenFile : public testing::Test {
 protected:
    /// Opens the bytes as a file, asks for everything and reads it all. Returns the packets read,
    /// or nothing when the file was refused.
    std::optional<std::uint64_t> readThrough(std::span<const std::byte> bytes) {
        EXPECT_EQ(::ftruncate(memory_, 0), 0);
        EXPECT_EQ(::pwrite(memory_, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
        const OpenFile file = openIfSound("/proc/self/fd/" + std::to_string(memory_));
        if (file == nullptr) {
            return std::nullopt;
        }
        const std::uint64_t count = packetCount(file);
        const auto audioSize = property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount);
        EXPECT_LE(audioSize, bytes.size());
        EXPECT_LE(cookieOf(file).size(), bytes.size());
        OSStatus readStatus = noErr;
        const auto audio = read(file, 0, static_cast<std::uint32_t>(count), &readStatus);
        if (readStatus == noErr) {
            EXPECT_EQ(audio.size(), audioSize);
        }
        return count;
    }

    /// A small file of each kind.
    std::vector<Bytes> goodFiles() {
        std::vector<Bytes> files;
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
            files.push_back(readFile(path_));
        });
        files.push_back(SbcLoop(SBCCoding::SBCConfiguration()).encode(testPcm(1280)));
        return files;
    }

    ~BrokenFile() override { ::close(memory_); }

 private:
    const TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "file";
    const int memory_ = ::memfd_create("broken", MFD_CLOEXEC);  // a file without a disk
};

TEST_F(BrokenFile, cutAnywhereGivesTheAudioThatIsThereOrAStatus) {
    for (const Bytes& good : goodFiles()) {
        const auto whole = readThrough(good);
        ASSERT_TRUE(whole);
        std::uint64_t previous = 0;
        for (std::size_t size = 0; size < good.size(); ++size) {
            const std::uint64_t count = readThrough(std::span(good).first(size)).value_or(0);
            EXPECT_LE(count, *whole);
            EXPECT_GE(count, previous) << "cut at " << size;
            previous = count;
        }
    }
}

TEST_F(BrokenFile, withAnyHeaderByteChangedDoesNoHarm) {
    for (const Bytes& good : goodFiles()) {
        // The values that break size arithmetic.
        Bytes changed = good;
        for (std::size_t i = 0; i < std::min<std::size_t>(good.size(), 200); ++i) {
            for (const unsigned value : {0x00U, 0x01U, 0x7FU, 0x80U, 0xFFU}) {
                changed[i] = static_cast<std::byte>(value);
                readThrough(changed);
            }
            changed[i] = good[i];
        }
    }
}

TEST_F(BrokenFile, madeByChanceDoesNoHarm) {
    const auto files = goodFiles();
    constexpr std::uint32_t kSeed = 20231;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 4000; ++round) {
        Bytes bytes = files[random() % files.size()];
        const std::size_t headerSize = std::min<std::size_t>(bytes.size() - 24, 128);
        for (auto changes = random() % 8 + 1; changes > 0; --changes) {
            const std::size_t at = random() % headerSize;
            switch (random() % 3) {
                case 0:
                    bytes[at] = static_cast<std::byte>(random());
                    break;
                case 1:  // four bytes of a size or an id
                    for (std::size_t i = at; i < std::min(at + 4, bytes.size()); ++i) {
                        bytes[i] = static_cast<std::byte>(random() % 2 == 0 ? 0xFF : 0x00);
                    }
                    break;
                default: {  // a piece of the file once more, like a second chunk
                    const auto from = static_cast<std::ptrdiff_t>(random() % headerSize);
                    const Bytes piece(bytes.begin() + from, bytes.begin() + from + 24);
                    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), piece.begin(),
                                 piece.end());
                }
            }
        }
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", round " + std::to_string(round));
        readThrough(bytes);
    }
}

TEST_F(BrokenFile, ofManyTinyChunksIsRefusedSoon) {
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

TEST(AudioFileService, tellsWhyAFileCannotBeReached) {
    const TemporaryFolder folder;
    OpenFile file;
    EXPECT_EQ(tryOpen(folder / "missing", file), kAudioFileFileNotFoundError);
    EXPECT_EQ(tryOpen(folder / "", file), kAudioFileNotAFileError);
    // A pipe that nobody writes to does not keep us waiting.
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(tryOpen(folder / "pipe", file), kAudioFileNotAFileError);
    AudioFileID id = nullptr;
    EXPECT_EQ(AudioFileOpenURL(folder / "missing", AudioFilePermissions{2}, 0, &id),
              kAudioFilePermissionsError);

    const auto format = pcmFormat(8000, 1);
    EXPECT_EQ(tryCreate(folder / "missing/file", kAudioFileWAVEType, format, file),
              kAudioFileFileNotFoundError);
    EXPECT_EQ(tryCreate(folder / "", kAudioFileWAVEType, format, file), kAudioFileNotAFileError);
    writeFile(folder / "old", testBytes(10));
    EXPECT_EQ(
        AudioFileCreateWithURL(folder / "old", kAudioFileWAVEType, &format, AudioFileFlags{0}, &id),
        kAudioFileExistsError);
    EXPECT_EQ(readFile(folder / "old"), testBytes(10));

    rlimit old{};
    ::getrlimit(RLIMIT_NOFILE, &old);
    const rlimit none{0, old.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(tryOpen(folder / "old", file), kAudioFileTooManyOpenError);
    ::setrlimit(RLIMIT_NOFILE, &old);
}

TEST(AudioFileService, reportsAFullDisk) {
    // The one device that is always full.
    const auto format = pcmFormat(8000, 1);
    OpenFile file;
    EXPECT_EQ(tryCreate("/dev/full", kAudioFileWAVEType, format, file), kAudioFileDiskFullError);
    EXPECT_EQ(tryCreate("/dev/full", kAudioFileSBCType, sbcFormat(16000, 1, 0x200B00, 72), file),
              noErr);
    const Bytes frames = SbcLoop(SBCCoding::SBCConfiguration()).encode(testPcm(128));
    EXPECT_EQ(write(file, 0, frames, 1), kAudioFileDiskFullError);
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
