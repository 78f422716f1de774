// Compressed files through the service, against what other programs make, find and decode.

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <future>
#include <iterator>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

extern "C" {
#include <libavutil/log.h>
}

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

/// The packets that ffmpeg finds, one after the other, without headers of their own.
Bytes bytesByFfmpeg(const std::filesystem::path& path, AudioFileTypeID type) {
    const std::string filter = type == kAudioFileAAC_ADTSType ? "-bsf:a aac_adtstoasc " : "";
    return bytesOutputOf("ffmpeg -nostdin -v error -i " + quoted(path) + " -map 0:a:0 -c copy " +
                         filter + "-f data -");
}

std::vector<std::uint32_t> packetSizesByFfprobe(const std::filesystem::path& path) {
    std::istringstream sizes(
        outputOf("ffprobe -v error -select_streams a:0 -show_entries packet=size -of "
                 "default=noprint_wrappers=1:nokey=1 " +
                 quoted(path)));
    return {std::istream_iterator<std::uint32_t>(sizes), {}};
}

/// Frames that are heard.
std::uint64_t framesByFfmpeg(const std::filesystem::path& path, std::uint32_t channels) {
    return std::stoull(outputOf("ffmpeg -nostdin -v error -i " + quoted(path) +
                                " -map 0:a:0 -f s16le - | wc -c")) /
           2 / channels;
}

class CompressedFile : public testing::Test {
 protected:
    CompressedSampleFolder samples_;
    const std::filesystem::path path_ = samples_ / "written";
};

TEST_F(CompressedFile, holdsThePacketsThatOthersFindAndGivesThemInAnyOrder) {
    for (const CompressedSample& sample : compressedSamples()) {
        SCOPED_TRACE(sample.name);
        const auto path = samples_[sample.name];
        auto sizes = packetSizesByFfprobe(path);
        if (sample.fileType == kAudioFileAAC_ADTSType) {
            std::for_each(sizes.begin(), sizes.end(), [](std::uint32_t& size) { size -= 7; });
        }
        const std::uint64_t frames =
            sample.frameCount != 0 ? sample.frameCount : framesByFfmpeg(path, sample.channels);
        const Bytes bytes = bytesByFfmpeg(path, sample.fileType);

        const SilentStderr silent;
        const OpenFile file = open(path);
        EXPECT_EQ(formatOf(file), compressedFormat(sample.formatID, sample.rate, sample.channels,
                                                   sample.framesPerPacket, sample.formatFlags()))
            << formatOf(file).mFramesPerPacket;
        EXPECT_EQ(typeOf(file), sample.fileType);
        EXPECT_EQ(cookieOf(file).size(), sample.cookieSize);
        EXPECT_EQ(packetCount(file), sizes.size());
        auto largest = property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize);
        EXPECT_EQ(largest, *std::max_element(sizes.begin(), sizes.end()));
        EXPECT_EQ(property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount),
                  bytes.size());
        // What ffmpeg writes into MP4 tells the end in milliseconds.
        const bool isInMilliseconds =
            sample.formatID == kAudioFormatMPEG4AAC && sample.frameCount != 0;
        EXPECT_NEAR(durationOf(file), static_cast<double>(frames) / sample.rate,
                    isInMilliseconds ? 1e-3 : 1e-9);

        const CompressedStream stream = readStream(path);
        std::vector<std::uint32_t> foundSizes;
        for (const AudioStreamPacketDescription& place : stream.places) {
            foundSizes.push_back(place.mDataByteSize);
        }
        ASSERT_EQ(foundSizes, sizes);
        EXPECT_TRUE(stream.bytes == bytes);

        std::vector<std::size_t> order(sizes.size());
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(7));
        const OpenFile fresh = open(path);
        const auto readPacket = [&](std::size_t i, std::uint32_t room) {
            Bytes packet(room);
            std::uint32_t count = 1;
            AudioStreamPacketDescription place;
            EXPECT_EQ(AudioFileReadPacketData(fresh.get(), false, &room, &place,
                                              static_cast<std::int64_t>(i), &count, packet.data()),
                      noErr);
            packet.resize(count == 0 ? 0 : room);
            return std::pair(packet, place);
        };
        for (const std::size_t i : order) {
            const AudioStreamPacketDescription place{0, stream.places[i].mVariableFramesInPacket,
                                                     sizes[i]};
            ASSERT_TRUE(readPacket(i, largest) == std::pair(stream.packet(i), place)) << i;
        }
        EXPECT_TRUE(readPacket(sizes.size(), largest).first.empty());
        // Room for less than a packet is room for none.
        EXPECT_TRUE(readPacket(1, sizes[1] - 1).first.empty());
    }
}

// The first one that needs the module loads it, and nobody knows which thread that is.
TEST_F(CompressedFile, isReadInSeveralThreadsFromTheFirstOneOn) {
    std::vector<std::pair<std::filesystem::path, std::future<CompressedStream>>> streams;
    for (const char* const name : {"aac.m4a", "vorbis.ogg", "free.flac", "tools.opus"}) {
        streams.emplace_back(samples_[name], std::future<CompressedStream>());
    }
    for (auto& [path, stream] : streams) {
        stream = std::async(std::launch::async, readStream, path);
    }
    for (auto& [path, stream] : streams) {
        const CompressedStream found = stream.get();
        EXPECT_TRUE(found == readStream(path)) << path;
        EXPECT_GT(found.places.size(), 10U) << path;
    }
}

// What other programs find in copies is tested in tests/apps/compressed_files.sh.
TEST_F(CompressedFile, isCopiedPacketByPacketAndLosesAtMostTheLastSecondWithItsWriter) {
    const std::vector<std::pair<std::string, std::vector<AudioFileTypeID>>> copies = {
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
    for (const auto& [sample, types] : copies) {
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
            CompressedStream back = readStream(path_);
            EXPECT_EQ(back.format, source.format);
            EXPECT_TRUE(back.bytes == source.bytes);
            EXPECT_TRUE(back.places == source.places);
            EXPECT_EQ(typeOf(open(path_)), type);
            // Nothing was told of priming. Opus' cookie tells; a Xing header always stands for the
            // delay of the decoder.
            const double priming = source.format.mFormatID == kAudioFormatOpus ? 312
                                   : type == kAudioFileMP3Type                 ? 529
                                                                               : 0;
            EXPECT_NEAR(durationOf(open(path_)) + priming / source.format.mSampleRate, written,
                        1e-6);
            if (type == kAudioFileCAFType) {
                continue;  // cannot be read before it is closed
            }
            writeAndBeKilled([&] {
                OpenFile file = create(path_, type, source.format);
                EXPECT_EQ(writeStream(file, source), noErr);
                return file;
            });
            EXPECT_GE(durationOf(open(path_)), durationOf(open(samples_[sample])) - 1.0);
            back = readStream(path_);
            EXPECT_LE(back.places.size(), source.places.size());
            ASSERT_LE(back.bytes.size(), source.bytes.size());
            EXPECT_TRUE(std::equal(back.bytes.begin(), back.bytes.end(), source.bytes.begin()));
            if (type != kAudioFileMP3Type) {  // where the number of packets is not known any more
                EXPECT_EQ(complaintsOf(path_), "");
            }
        }
    }
}

TEST_F(CompressedFile, isRefusedWhereTheTypeCannotHoldItAndTheOldFileStays) {
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
             // What ADTS headers have no code for.
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

TEST_F(CompressedFile, takesPacketsOnlyInTheirOrderAndWhole) {
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

    // Those of constant size are counted by their bytes.
    CompressedStream constant = readStream(samples_["cinema.ac3"]);
    constant.format.mBytesPerPacket = constant.places[0].mDataByteSize;
    const OpenFile other = create(path_, kAudioFileAC3Type, constant.format);
    EXPECT_EQ(write(other, 0, constant.packet(0), 5), noErr);
    EXPECT_EQ(packetCount(other), 1U);
}

class Cookie : public CompressedFile {
 protected:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    /// Writes the sample's first packets into a new file, and the cookie before the packet with
    /// this index; the status of the first call that fails, closing included.
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

    /// The samples of the first packets, decoded from what was written and from the source.
    void expectTheSameSound(const std::string& sample) {
        const auto framesOf = [&](const std::filesystem::path& path) {
            return outputOf("ffmpeg -nostdin -v error -flags2 +skip_manual -i " + quoted(path) +
                            " -map 0:a:0 -frames:a 15 -f md5 - 2>&1");
        };
        EXPECT_EQ(framesOf(path_), framesOf(samples_[sample]));
        EXPECT_EQ(complaintsOf(path_), "");
    }

    Bytes cookieOfWritten() { return cookieOf(open(path_)); }
};

TEST_F(Cookie, isTakenInEveryFormAtOnceAndAfterSomePackets) {
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
        Bytes found;  // empty: the file has another one
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

TEST_F(Cookie, isMadeOfTheRecordWhereNoneComes) {
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

TEST_F(Cookie, ofAacComesOutOfAdtsHeadersWhichAreTakenOff) {
    const Bytes adts = readFile(samples_["adts.aac"]);
    const CompressedStream source = readStream(samples_["adts.aac"]);
    auto format = source.format;
    format.mSampleRate = 48000;  // the headers know better
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
        // What the ADTS file holds is what was put in, header by header.
        if (type == kAudioFileAAC_ADTSType) {
            EXPECT_EQ(readFile(path_).size(), offset);
            EXPECT_EQ(framesByFfmpeg(path_, 2), 40U * 1024);
        }
    }
}

TEST_F(Cookie, thatIsMissingFailsTheEndOrTheWriteThatIsTooMuch) {
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

TEST_F(Cookie, ofFlacIsBroughtUpToDateAtTheEnd) {
    // A copy that ends early says how long it is, and has no checksum of audio that is not there.
    const Bytes cookie = cookieOf(open(samples_["free.flac"]));
    EXPECT_EQ(copyWith("free.flac", kAudioFileFLACType, cookie, 0, 10), noErr);
    EXPECT_EQ(framesByFfmpeg(path_, 2), 10U * 4608);
    EXPECT_EQ(
        outputOf("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 " + quoted(path_)),
        std::to_string(10 * 4608) + "\n");
    EXPECT_EQ(outputOf("sox " + quoted(path_) + " -n stat 2>&1 | grep -c WARN || true"), "0\n");
}

TEST_F(CompressedFile, tellsOfAFullDisk) {
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
        // What only the end writes fails there.
        file = create(path_, type, source.format);
        EXPECT_EQ(writeStream(file, beginning), noErr);
        const ResourceLimit limit(RLIMIT_FSIZE, 100);
        EXPECT_EQ(close(file), kAudioFileDiskFullError);
    }
}

TEST_F(CompressedFile, withJunkBetweenPacketsIsReadAroundIt) {
    for (const auto& [name, headerSize] :
         {std::pair{"plain.mp3", 0}, {"adts.aac", 7}, {"cinema.ac3", 0}}) {
        SCOPED_TRACE(name);
        const Bytes good = readFile(samples_[name]);
        const CompressedStream source = readStream(samples_[name]);
        // Behind the tenth packet.
        const auto at = good.begin() + source.places[10].mStartOffset + 10 * headerSize;
        writeFile(path_, joined({Bytes(good.begin(), at), Bytes(3000, std::byte{0x55}),
                                 Bytes(at, good.end())}));
        const SilentStderr silent;
        const CompressedStream found = readStream(path_);
        // Every packet that ffmpeg finds, or one less where it joins two pieces into one.
        EXPECT_GE(found.places.size() + 2, source.places.size());
        for (const std::size_t i : {0U, 5U, 8U}) {
            EXPECT_EQ(found.packet(i), source.packet(i)) << i;
            EXPECT_EQ(found.packet(found.places.size() - 1 - i),
                      source.packet(source.places.size() - 1 - i))
                << i;
        }
    }
}

Bytes id3Tag(unsigned version, const Bytes& content) {
    Bytes tag = bytesFrom({'I', 'D', '3', version, 0, 0});
    for (int shift = 21; shift >= 0; shift -= 7) {
        tag.push_back(
            static_cast<std::byte>(content.size() >> static_cast<unsigned>(shift) & 0x7FU));
    }
    return joined({tag, content});
}

// libavformat would print what it thinks of odd ones, past all levels.
TEST_F(CompressedFile, behindTagsIsReadInSilence) {
    const Bytes ofAVersionToCome = id3Tag(5, bytesFrom({1, 2, 3, 4}));
    const Bytes withoutByteOrderMark =
        id3Tag(3, bytesFrom({'T', 'I', 'T', '2', 0, 0, 0, 5, 0, 0, 1, 'a', 'b', 'c', 'd'}));
    // A picture of a megabyte, in two tags.
    const Bytes large = joined({id3Tag(4, Bytes(1U << 20U)), id3Tag(4, Bytes(300))});
    for (const auto& [name, tag] : {std::pair{"lame.mp3", ofAVersionToCome},
                                    {"lame.mp3", withoutByteOrderMark},
                                    {"lame.mp3", large},
                                    {"adts.aac", large},
                                    {"free.flac", large}}) {
        SCOPED_TRACE(name);
        writeFile(path_, joined({tag, readFile(samples_[name])}));
        const SilentStderr silent;
        EXPECT_TRUE(readStream(path_) == readStream(samples_[name]));
        EXPECT_EQ(durationOf(open(path_)), durationOf(open(samples_[name])));
    }
}

TEST_F(CompressedFile, ofOtherKindsIsNotTakenForAudio) {
    const auto make = [&](const std::string& name, const std::string& command) {
        outputOf("OUT=" + quoted(samples_ / name) + "; " + command);
        return samples_ / name;
    };
    const std::string picture = "ffmpeg -nostdin -v error -f lavfi -i testsrc=d=1:s=64x64:r=5 ";
    const SilentStderr silent;
    for (const auto& path :
         {make("list.m3u8", "printf '#EXTM3U\\n#EXTINF:1,\\nplain.mp3\\n' > \"$OUT\""),
          make("list.txt", "printf \"ffconcat version 1.0\\nfile 'plain.mp3'\\n\" > \"$OUT\""),
          make("picture.png", picture + "-frames:v 1 \"$OUT\""),
          make("film.avi", picture + "\"$OUT\""), make("film.mkv", picture + "\"$OUT\""),
          make("text.srt", "printf '1\\n00:00:00,000 --> 00:00:01,000\\nhello\\n' > \"$OUT\"")}) {
        open(path, kAudioFileUnsupportedFileTypeError);
    }
    open(make("film.mp4", picture + "\"$OUT\""), kAudioFileUnsupportedDataFormatError);
    Bytes caf = readFile(samples_["alac.caf"]);
    std::fill_n(caf.begin() + 20, 8, std::byte{0});  // the rate
    writeFile(path_, caf);
    open(path_, kAudioFileInvalidFileError);
    // An MP4 that does not say which.
    Bytes mp4 = readFile(samples_["aac.m4a"]);
    std::fill_n(mp4.begin() + 4, 4, std::byte{'x'});  // 'ftyp'
    writeFile(path_, mp4);
    EXPECT_EQ(typeOf(open(path_)), kAudioFileMPEG4Type);
}

TEST_F(CompressedFile, thatIsLongIsCountedToItsEnd) {
    // More packets than the list that libavformat keeps for itself can have.
    const auto path = samples_ / "long.mp3";
    outputOf("ffmpeg -nostdin -v error -f lavfi -i anullsrc=r=8000:cl=mono -t 3600 -b:a 8k " +
             quoted(path));
    const auto sizes = packetSizesByFfprobe(path);
    const OpenFile file = open(path);
    ASSERT_EQ(packetCount(file), sizes.size());
    EXPECT_GT(sizes.size(), 50000U);
    for (std::size_t i = 0; i < sizes.size(); i += 997) {
        EXPECT_EQ(read(file, static_cast<std::int64_t>(i), 1).size(), sizes[i]);
    }
}

TEST_F(CompressedFile, leavesTheProcessAsItWas) {
    const std::string locale = std::setlocale(LC_ALL, nullptr);
    const int logLevel = av_log_get_level();
    const CompressedStream source = readStream(samples_["aac.m4a"]);
    EXPECT_EQ(writePacket(create(path_, kAudioFileM4AType, source.format), source, 0), noErr);
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
    EXPECT_EQ(av_log_get_level(), logLevel);
}

TEST(AudioFileTypes, areThoseThatCanBeReadAndWritten) {
    std::uint32_t size = 0;
    for (const auto question :
         {kAudioFileGlobalInfo_ReadableTypes, kAudioFileGlobalInfo_WritableTypes}) {
        ASSERT_EQ(AudioFileGetGlobalInfoSize(question, 0, nullptr, &size), noErr);
        std::vector<AudioFileTypeID> types(size / sizeof(AudioFileTypeID));
        ASSERT_EQ(AudioFileGetGlobalInfo(question, 0, nullptr, &size, types.data()), noErr);
        const std::set<AudioFileTypeID> found(types.begin(), types.end());
        EXPECT_EQ(found.size(), types.size());
        EXPECT_TRUE(found.contains(kAudioFileWAVEType) && found.contains(kAudioFileOggType));
        --size;
        EXPECT_EQ(AudioFileGetGlobalInfo(question, 0, nullptr, &size, types.data()),
                  kAudioFileBadPropertySizeError);
    }
    EXPECT_EQ(AudioFileGetGlobalInfoSize(fourCharCode("none"), 0, nullptr, &size),
              kAudioFileUnsupportedPropertyError);
}

}  // namespace
}  // namespace zav::test
