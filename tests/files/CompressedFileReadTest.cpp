// Reading compressed files through the service, compared with what other programs find.

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <future>
#include <iterator>
#include <numeric>
#include <random>
#include <set>
#include <sstream>

extern "C" {
#include <libavutil/log.h>
}

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/CompressedStream.hpp"
#include "tests/support/Formats.hpp"
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

std::vector<std::uint32_t> sizesOf(const CompressedStream& stream) {
    std::vector<std::uint32_t> sizes;
    for (const AudioStreamPacketDescription& place : stream.places) {
        sizes.push_back(place.mDataByteSize);
    }
    return sizes;
}

class CompressedFile : public testing::Test {
 protected:
    CompressedSampleFolder samples_;
    const std::filesystem::path path_ = samples_ / "written";
};

TEST_F(CompressedFile, holdsThePacketsThatOtherProgramsFind) {
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
        EXPECT_EQ(property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize),
                  *std::max_element(sizes.begin(), sizes.end()));
        EXPECT_EQ(property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount),
                  bytes.size());
        // ffmpeg stores the end in MP4 in milliseconds.
        const bool isInMilliseconds =
            sample.formatID == kAudioFormatMPEG4AAC && sample.frameCount != 0;
        EXPECT_NEAR(durationOf(file), static_cast<double>(frames) / sample.rate,
                    isInMilliseconds ? 1e-3 : 1e-9);

        const CompressedStream stream = readStream(path);
        EXPECT_EQ(sizesOf(stream), sizes);
        EXPECT_TRUE(stream.bytes == bytes);
    }
}

TEST_F(CompressedFile, givesItsPacketsInAnyOrder) {
    for (const CompressedSample& sample : compressedSamples()) {
        SCOPED_TRACE(sample.name);
        const SilentStderr silent;
        const CompressedStream stream = readStream(samples_[sample.name]);
        const auto sizes = sizesOf(stream);
        const std::uint32_t largest = *std::max_element(sizes.begin(), sizes.end());
        std::vector<std::size_t> order(sizes.size());
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(7));
        const OpenFile fresh = open(samples_[sample.name]);
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
        // No part of a packet is read.
        EXPECT_TRUE(readPacket(1, sizes[1] - 1).first.empty());
    }
}

// The first thread that needs the module loads it, and that can be any of them.
TEST_F(CompressedFile, isReadInSeveralThreads) {
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

TEST_F(CompressedFile, withJunkBetweenPacketsIsReadAroundIt) {
    for (const auto& [name, headerSize] :
         {std::pair{"plain.mp3", 0}, {"adts.aac", 7}, {"cinema.ac3", 0}}) {
        SCOPED_TRACE(name);
        const Bytes good = readFile(samples_[name]);
        const CompressedStream source = readStream(samples_[name]);
        // After the tenth packet.
        const auto at = good.begin() + source.places[10].mStartOffset + 10 * headerSize;
        writeFile(path_, joined({Bytes(good.begin(), at), Bytes(3000, std::byte{0x55}),
                                 Bytes(at, good.end())}));
        const SilentStderr silent;
        const CompressedStream found = readStream(path_);
        // Every packet that ffmpeg finds, or one less if it joins two pieces into one.
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

// libavformat would print warnings about odd tags at any log level.
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
    // An MP4 file without a brand.
    Bytes mp4 = readFile(samples_["aac.m4a"]);
    std::fill_n(mp4.begin() + 4, 4, std::byte{'x'});  // 'ftyp'
    writeFile(path_, mp4);
    EXPECT_EQ(typeOf(open(path_)), kAudioFileMPEG4Type);
}

TEST_F(CompressedFile, thatIsLongIsCountedToItsEnd) {
    // More packets than libavformat's own index can hold.
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

TEST(AudioFileTypes, areListed) {
    std::uint32_t size = 0;
    for (const auto list :
         {kAudioFileGlobalInfo_ReadableTypes, kAudioFileGlobalInfo_WritableTypes}) {
        ASSERT_EQ(AudioFileGetGlobalInfoSize(list, 0, nullptr, &size), noErr);
        std::vector<AudioFileTypeID> types(size / sizeof(AudioFileTypeID));
        ASSERT_EQ(AudioFileGetGlobalInfo(list, 0, nullptr, &size, types.data()), noErr);
        const std::set<AudioFileTypeID> found(types.begin(), types.end());
        EXPECT_EQ(found.size(), types.size());
        EXPECT_TRUE(found.contains(kAudioFileWAVEType) && found.contains(kAudioFileOggType));
        --size;
        EXPECT_EQ(AudioFileGetGlobalInfo(list, 0, nullptr, &size, types.data()),
                  kAudioFileBadPropertySizeError);
    }
    EXPECT_EQ(AudioFileGetGlobalInfoSize(fourCharCode("none"), 0, nullptr, &size),
              kAudioFileUnsupportedPropertyError);
}

}  // namespace
}  // namespace zav::test
