// The file service where the module for compressed files is not installed: this program has none
// beside it.

#include <gtest/gtest.h>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

TEST(MissingModule, leavesPcmAndSbcAndRefusesTheRest) {
    const TemporaryFolder folder;
    OpenFile file;
    for (const char* const start : {"OggS", "fLaC", "ID3\4", "caff"}) {
        const std::string text = start + std::string(96, '\0');
        writeFile(folder / "file", std::as_bytes(std::span(text)));
        EXPECT_NE(tryOpen(folder / "file", file), noErr) << start;
    }
    writeFile(folder / "flac", std::as_bytes(std::span("fLaC")));
    EXPECT_EQ(tryOpen(folder / "flac", file), kAudioFileUnsupportedFileTypeError);

    EXPECT_EQ(tryCreate(folder / "mp3", kAudioFileMP3Type,
                        compressedFormat(kAudioFormatMPEGLayer3, 44100, 2), file),
              kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(tryCreate(folder / "alac", kAudioFileCAFType,
                        compressedFormat(kAudioFormatALAC, 44100, 2), file),
              kAudioFileUnsupportedDataFormatError);
    EXPECT_FALSE(std::filesystem::exists(folder / "mp3"));
    EXPECT_FALSE(std::filesystem::exists(folder / "alac"));

    std::uint32_t size = 0;
    EXPECT_EQ(AudioFileGetGlobalInfoSize(kAudioFileGlobalInfo_ReadableTypes, 0, nullptr, &size),
              noErr);
    EXPECT_EQ(size, 8 * sizeof(AudioFileTypeID));
    const OpenFile wave = create(folder / "wave", kAudioFileWAVEType, pcmFormat(8000, 1));
    EXPECT_EQ(write(wave, 0, testBytes(8)), noErr);
}

}  // namespace
}  // namespace zav::test
