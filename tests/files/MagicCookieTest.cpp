// Magic cookies of files that are written: their forms, and what happens without one.

#include <gtest/gtest.h>

#include <limits>
#include <utility>

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/CompressedStream.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

class MagicCookie : public testing::Test {
 protected:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    /// Writes the sample's first packets into a new file, and sets the cookie before the packet
    /// with the index `before`. Returns the status of the first call that fails, closing included.
    OSStatus copyWith(const std::string& sample, AudioFileTypeID type, const Bytes& cookie,
                      std::size_t before, std::size_t packets = 20) {
        const SilentStderr silent;
        const CompressedStream source = readStream(samples_[sample]);
        OpenFile file = create(path_, type, source.format);
        OSStatus status = noErr;
        for (std::size_t i = 0; i < packets && status == noErr; ++i) {
            status = i == before ? setCookie(file, cookie) : noErr;
            if (status == noErr) {
                status = write(file, static_cast<std::int64_t>(i), source.packet(i), 1);
            }
        }
        return status != noErr ? status : close(file);
    }

    /// Compares the first packets of the written file with those of the sample, both decoded.
    void expectTheSameSound(const std::string& sample) {
        const auto framesOf = [&](const std::filesystem::path& path) {
            return outputOf("ffmpeg -nostdin -v error -flags2 +skip_manual -i " + quoted(path) +
                            " -map 0:a:0 -frames:a 15 -f md5 - 2>&1");
        };
        EXPECT_EQ(framesOf(path_), framesOf(samples_[sample]));
        EXPECT_EQ(complaintsOf(path_), "");
    }

    Bytes cookieOfWritten() { return cookieOf(open(path_)); }

    CompressedSampleFolder samples_;
    const std::filesystem::path path_ = samples_ / "written";
};

TEST_F(MagicCookie, isTakenInEveryForm) {
    const Bytes aac = bytesFrom({0x12, 0x10, 0x56, 0xE5, 0x00});
    const Bytes descriptor = joined(
        {bytesFrom({3, 0x80, 0x80, 0x80, 34, 0, 0, 0, 4, 0x80, 0x80, 0x80, 23,   0x40, 0x15, 0,
                    0, 0,    0,    0,    0,  0, 0, 0, 0, 0,    5,    0x80, 0x80, 0x80, 5}),
         aac, bytesFrom({6, 1, 2})});
    const Bytes alac = cookieOf(open(samples_["alac.m4a"]));
    ASSERT_EQ(alac.size(), 24U);
    const Bytes atom = joined({bytesFrom({0, 0, 0, 36, 'a', 'l', 'a', 'c', 0, 0, 0, 0}), alac});
    const Bytes twoAtoms =
        joined({bytesFrom({0, 0, 0, 12, 'f', 'r', 'm', 'a', 'a', 'l', 'a', 'c'}), atom});
    const Bytes flac = cookieOf(open(samples_["free.flac"]));
    const Bytes flacFile = joined({bytesFrom({'f', 'L', 'a', 'C', 0x80, 0, 0, 34}), flac});
    const Bytes vorbis = cookieOf(open(samples_["vorbis.ogg"]));
    struct Case {
        std::string sample;
        AudioFileTypeID type;
        std::vector<Bytes> forms;
        Bytes found;  // empty: not compared
    };
    for (const Case& test : std::vector<Case>{
             {"aac.m4a", kAudioFileM4AType, {aac, descriptor}, aac},
             {"aac.m4a", kAudioFileAAC_ADTSType, {aac, descriptor}, bytesFrom({0x12, 0x10})},
             {"alac.m4a", kAudioFileM4AType, {alac, atom, twoAtoms}, alac},
             {"alac.m4a", kAudioFileCAFType, {alac, atom, twoAtoms}, alac},
             {"free.flac", kAudioFileFLACType, {flac, flacFile}, {}},
             {"vorbis.ogg", kAudioFileOggType, {vorbis}, {}},
         }) {
        for (std::size_t i = 0; i < test.forms.size(); ++i) {
            for (const std::size_t before : {0U, 3U}) {
                SCOPED_TRACE(test.sample + " to " + fourCharText(test.type) + ", form " +
                             std::to_string(i) + " before packet " + std::to_string(before));
                EXPECT_EQ(copyWith(test.sample, test.type, test.forms[i], before), noErr);
                if (!test.found.empty()) {
                    EXPECT_EQ(cookieOfWritten(), test.found);
                }
                expectTheSameSound(test.sample);
            }
        }
    }
    for (const Bytes& bad :
         {Bytes(), bytesFrom({0x12}), bytesFrom({3}), bytesFrom({3, 5, 0, 0, 0, 4}),
          bytesFrom({3, 9, 0, 0, 0, 5, 1, 0, 0, 0, 0}),
          Bytes(descriptor.begin(), descriptor.begin() + 20)}) {
        EXPECT_EQ(copyWith("aac.m4a", kAudioFileM4AType, bad, 0), kAudioFileParameterError);
    }
    EXPECT_EQ(copyWith("alac.m4a", kAudioFileM4AType, testBytes(23), 0), kAudioFileParameterError);
}

TEST_F(MagicCookie, isMadeFromTheRecordIfNoneIsSet) {
    for (const AudioFileTypeID type :
         {kAudioFileM4AType, kAudioFileMPEG4Type, kAudioFileAAC_ADTSType}) {
        EXPECT_EQ(copyWith("aac.m4a", type, {}, kNever), noErr);
        EXPECT_EQ(cookieOfWritten(), bytesFrom({0x12, 0x10}));
        expectTheSameSound("aac.m4a");
    }
    EXPECT_EQ(copyWith("long.opus", kAudioFileOggType, {}, kNever), noErr);
    EXPECT_EQ(cookieOfWritten(), bytesFrom({'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, 1, 0x38, 1,
                                            0x80, 0xBB, 0, 0, 0, 0, 0}));
    expectTheSameSound("long.opus");
}

TEST_F(MagicCookie, ofAacIsMadeFromAdtsHeaders) {
    const Bytes adts = readFile(samples_["adts.aac"]);
    const CompressedStream source = readStream(samples_["adts.aac"]);
    auto format = source.format;
    format.mSampleRate = 48000;  // the headers contain the right one
    for (const AudioFileTypeID type : {kAudioFileM4AType, kAudioFileAAC_ADTSType}) {
        OpenFile file = create(path_, type, format);
        std::size_t offset = 0;
        for (std::size_t i = 0; i < 40; ++i) {
            const std::size_t size = source.places[i].mDataByteSize + std::size_t{7};
            EXPECT_EQ(
                write(file, static_cast<std::int64_t>(i), std::span(adts).subspan(offset, size), 1),
                noErr);
            offset += size;
        }
        EXPECT_EQ(close(file), noErr);
        EXPECT_EQ(cookieOfWritten(), bytesFrom({0x12, 0x10}));
        EXPECT_EQ(readStream(path_).packet(7), source.packet(7));
        // The ADTS file has the same packets with the same headers.
        if (type == kAudioFileAAC_ADTSType) {
            EXPECT_EQ(readFile(path_).size(), offset);
            EXPECT_EQ(framesByFfmpeg(path_, 2), 40U * 1024);
        }
    }
}

TEST_F(MagicCookie, thatIsMissingFailsTheFile) {
    for (const auto& [sample, type] : {std::pair{"free.flac", kAudioFileFLACType},
                                       {"vorbis.ogg", kAudioFileOggType},
                                       {"alac.m4a", kAudioFileM4AType},
                                       {"alac.m4a", kAudioFileCAFType}}) {
        EXPECT_EQ(copyWith(sample, type, {}, kNever, 10), kAudioFileUnsupportedDataFormatError);
    }
    const OpenFile file = create(path_, kAudioFileFLACType, formatOf(open(samples_["free.flac"])));
    const Bytes large = testBytes(1 << 20);
    for (std::int64_t i = 0; i < 8; ++i) {
        EXPECT_EQ(write(file, i, large, 1), noErr);
    }
    EXPECT_EQ(write(file, 8, large, 1), kAudioFileUnsupportedDataFormatError);
}

TEST_F(MagicCookie, ofFlacIsBroughtUpToDateAtTheEnd) {
    // A shorter copy contains its own length, and no checksum of audio that it lacks.
    const Bytes cookie = cookieOf(open(samples_["free.flac"]));
    EXPECT_EQ(copyWith("free.flac", kAudioFileFLACType, cookie, 0, 10), noErr);
    EXPECT_EQ(framesByFfmpeg(path_, 2), 10U * 4608);
    EXPECT_EQ(
        outputOf("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 " + quoted(path_)),
        std::to_string(10 * 4608) + "\n");
    EXPECT_EQ(outputOf("sox " + quoted(path_) + " -n stat 2>&1 | grep -c WARN || true"), "0\n");
}

}  // namespace
}  // namespace zav::test
