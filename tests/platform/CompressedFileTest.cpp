// Compressed files through the service, against what other programs make, find and decode.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>

extern "C" {
#include <libavutil/log.h>
}

#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Bytes = std::vector<std::byte>;

struct PacketAndFrames {
    Bytes bytes;
    std::uint32_t frames;  // as its description says

    friend bool operator==(const PacketAndFrames&, const PacketAndFrames&) = default;
};

PacketAndFrames readPacket(const OpenFile& file, std::int64_t index) {
    auto size = property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize);
    std::uint32_t count = 1;
    Bytes bytes(size);
    AudioStreamPacketDescription place;
    EXPECT_EQ(
        AudioFileReadPacketData(file.get(), false, &size, &place, index, &count, bytes.data()),
        noErr);
    EXPECT_EQ(place.mDataByteSize, size);
    bytes.resize(count == 0 ? 0 : size);
    return {bytes, place.mVariableFramesInPacket};
}

std::vector<PacketAndFrames> packetsOf(const OpenFile& file) {
    std::vector<PacketAndFrames> packets;
    const auto count = static_cast<std::int64_t>(packetCount(file));
    for (std::int64_t i = 0; i < count; ++i) {
        packets.push_back(readPacket(file, i));
    }
    return packets;
}

Bytes cookieOf(const OpenFile& file) {
    std::uint32_t size = 0;
    if (AudioFileGetPropertyInfo(file.get(), kAudioFilePropertyMagicCookieData, &size, nullptr) !=
        noErr) {
        return {};
    }
    Bytes cookie(size);
    EXPECT_EQ(
        AudioFileGetProperty(file.get(), kAudioFilePropertyMagicCookieData, &size, cookie.data()),
        noErr);
    return cookie;
}

AudioStreamBasicDescription formatOf(const OpenFile& file) {
    return property<AudioStreamBasicDescription>(file, kAudioFilePropertyDataFormat);
}

double durationOf(const OpenFile& file) {
    return property<double>(file, kAudioFilePropertyEstimatedDuration);
}

OSStatus setCookie(const OpenFile& file, const Bytes& cookie) {
    return AudioFileSetProperty(file.get(), kAudioFilePropertyMagicCookieData,
                                static_cast<std::uint32_t>(cookie.size()), cookie.data());
}

OSStatus writePacket(const OpenFile& file, std::int64_t index, const PacketAndFrames& packet,
                     bool isDescribed = true) {
    std::uint32_t count = 1;
    const auto size = static_cast<std::uint32_t>(packet.bytes.size());
    const AudioStreamPacketDescription place{0, packet.frames, size};
    return AudioFileWritePackets(file.get(), false, size, isDescribed ? &place : nullptr, index,
                                 &count, packet.bytes.data());
}

OSStatus close(OpenFile& file) {
    return AudioFileClose(file.release());
}

std::string quoted(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

/// The packets that ffmpeg finds, one after the other, without headers of their own.
Bytes bytesByFfmpeg(const std::filesystem::path& path, AudioFileTypeID type) {
    const std::string filter = type == kAudioFileAAC_ADTSType ? "-bsf:a aac_adtstoasc " : "";
    const std::string text = outputOf("ffmpeg -nostdin -v error -i " + quoted(path) +
                                      " -map 0:a:0 -c copy " + filter + "-f data -");
    Bytes bytes;
    std::transform(text.begin(), text.end(), std::back_inserter(bytes),
                   [](char letter) { return static_cast<std::byte>(letter); });
    return bytes;
}

std::vector<std::uint32_t> packetSizesByFfprobe(const std::filesystem::path& path) {
    std::istringstream lines(
        outputOf("ffprobe -v error -select_streams a:0 -show_entries packet=size -of "
                 "default=noprint_wrappers=1:nokey=1 " +
                 quoted(path)));
    std::vector<std::uint32_t> sizes;
    for (std::string line; std::getline(lines, line);) {
        // A packet with side data is followed by an empty line.
        if (!line.empty()) {
            sizes.push_back(static_cast<std::uint32_t>(std::stoul(line)));
        }
    }
    return sizes;
}

/// Frames that are heard.
std::uint64_t framesByFfmpeg(const std::filesystem::path& path, std::uint32_t channels) {
    return std::stoull(outputOf("ffmpeg -nostdin -v error -i " + quoted(path) +
                                " -map 0:a:0 -f s16le - | wc -c")) /
           2 / channels;
}

/// A sum over all samples that decoding gives, priming included.
std::string decodedSum(const std::filesystem::path& path) {
    return outputOf("ffmpeg -nostdin -v error -flags2 +skip_manual -i " + quoted(path) +
                    " -map 0:a:0 -f md5 - 2>&1");
}

/// What ffprobe has to say against a file. That raw streams do not tell their duration is no fault
/// of the writer.
std::string complaintsOf(const std::filesystem::path& path) {
    return outputOf("ffprobe -v warning " + quoted(path) +
                    " 2>&1 | grep -vE '[[](aac|ac3|amr) @.*Estimating duration' || true");
}

class CompressedFile : public testing::Test {
 protected:
    CompressedSampleFolder samples_;
    const std::filesystem::path path_ = samples_ / "written";
};

TEST_F(CompressedFile, holdsThePacketsThatOthersFind) {
    for (const CompressedSample& sample : compressedSamples()) {
        SCOPED_TRACE(sample.name);
        const auto path = samples_[sample.name];
        auto sizes = packetSizesByFfprobe(path);
        if (sample.fileType == kAudioFileAAC_ADTSType) {
            std::for_each(sizes.begin(), sizes.end(), [](std::uint32_t& size) { size -= 7; });
        }
        const Bytes bytes = bytesByFfmpeg(path, sample.fileType);
        const std::uint64_t frames =
            sample.frameCount != 0 ? sample.frameCount : framesByFfmpeg(path, sample.channels);

        const SilentStderr silent;
        const OpenFile file = open(path);
        AudioStreamBasicDescription format;
        format.mSampleRate = sample.rate;
        format.mFormatID = sample.formatID;
        format.mFormatFlags = sample.formatFlags();
        format.mChannelsPerFrame = sample.channels;
        format.mFramesPerPacket = sample.framesPerPacket;
        EXPECT_EQ(formatOf(file), format) << formatOf(file).mFramesPerPacket;
        EXPECT_EQ(property<AudioFileTypeID>(file, kAudioFilePropertyFileFormat), sample.fileType);
        EXPECT_EQ(cookieOf(file).size(), sample.cookieSize);
        EXPECT_EQ(packetCount(file), sizes.size());
        EXPECT_EQ(property<std::uint32_t>(file, kAudioFilePropertyMaximumPacketSize),
                  *std::max_element(sizes.begin(), sizes.end()));
        EXPECT_EQ(property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount),
                  bytes.size());
        // What ffmpeg writes into MP4 tells the end in milliseconds.
        const bool isInMilliseconds =
            sample.formatID == kAudioFormatMPEG4AAC && sample.frameCount != 0;
        EXPECT_NEAR(durationOf(file), static_cast<double>(frames) / sample.rate,
                    isInMilliseconds ? 1e-3 : 1e-9);

        const auto packets = packetsOf(file);
        Bytes joined;
        for (std::size_t i = 0; i < packets.size() && i < sizes.size(); ++i) {
            EXPECT_EQ(packets[i].bytes.size(), sizes[i]) << i;
            joined.insert(joined.end(), packets[i].bytes.begin(), packets[i].bytes.end());
        }
        EXPECT_TRUE(joined == bytes);
        EXPECT_TRUE(readAll(file) == bytes);
    }
}

// The first one that needs the module loads it, and nobody knows which thread that is.
TEST_F(CompressedFile, isReadInSeveralThreadsFromTheFirstOneOn) {
    std::vector<std::filesystem::path> paths;
    for (const char* const name : {"aac.m4a", "vorbis.ogg", "free.flac", "tools.opus"}) {
        paths.push_back(samples_[name]);
    }
    std::vector<std::size_t> counts(paths.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        threads.emplace_back([&, i] { counts[i] = packetsOf(open(paths[i])).size(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        EXPECT_EQ(counts[i], packetCount(open(paths[i]))) << paths[i];
        EXPECT_GT(counts[i], 10U) << paths[i];
    }
}

TEST_F(CompressedFile, givesAnyPacketInAnyOrder) {
    for (const CompressedSample& sample : compressedSamples()) {
        SCOPED_TRACE(sample.name);
        const OpenFile file = open(samples_[sample.name]);
        const auto packets = packetsOf(file);
        std::vector<std::size_t> order(packets.size());
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(7));
        const OpenFile fresh = open(samples_[sample.name]);
        for (const std::size_t i : order) {
            ASSERT_TRUE(readPacket(fresh, static_cast<std::int64_t>(i)) == packets[i]) << i;
        }
        EXPECT_TRUE(read(fresh, static_cast<std::int64_t>(packets.size()), 1).empty());
        // Room for less than a packet is room for none.
        std::uint32_t size = static_cast<std::uint32_t>(packets[1].bytes.size()) - 1;
        std::uint32_t count = 1;
        Bytes buffer(size);
        EXPECT_EQ(
            AudioFileReadPacketData(fresh.get(), false, &size, nullptr, 1, &count, buffer.data()),
            noErr);
        EXPECT_EQ(count, 0U);
    }
}

TEST_F(CompressedFile, isCopiedPacketByPacketIntoEveryTypeThatTakesIt) {
    struct Copy {
        std::string sample;
        std::vector<AudioFileTypeID> types;
    };
    const std::vector<Copy> copies = {
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
    for (const Copy& copy : copies) {
        const OpenFile source = open(samples_[copy.sample]);
        const auto format = formatOf(source);
        const auto packets = packetsOf(source);
        const Bytes cookie = cookieOf(source);
        const std::string sum = decodedSum(samples_[copy.sample]);
        for (const AudioFileTypeID type : copy.types) {
            SCOPED_TRACE(copy.sample + " to " + fourCharText(type));
            double written = 0;
            {
                const SilentStderr silent;
                OpenFile file = create(path_, type, format);
                if (!cookie.empty()) {
                    EXPECT_EQ(setCookie(file, cookie), noErr);
                }
                for (std::size_t i = 0; i < packets.size(); ++i) {
                    ASSERT_EQ(writePacket(file, static_cast<std::int64_t>(i), packets[i]), noErr);
                }
                EXPECT_EQ(packetCount(file), packets.size());
                written = durationOf(file);
                EXPECT_EQ(close(file), noErr);
            }
            EXPECT_EQ(complaintsOf(path_), "");
            EXPECT_EQ(decodedSum(path_), sum);
            const OpenFile back = open(path_);
            EXPECT_EQ(property<AudioFileTypeID>(back, kAudioFilePropertyFileFormat), type);
            EXPECT_EQ(formatOf(back), format);
            EXPECT_TRUE(packetsOf(back) == packets);
            // Nothing was told of priming. Opus' cookie tells; a Xing header always stands for the
            // delay of the decoder.
            const double priming = format.mFormatID == kAudioFormatOpus ? 312
                                   : type == kAudioFileMP3Type          ? 529
                                                                        : 0;
            EXPECT_NEAR(durationOf(back) + priming / format.mSampleRate, written, 1e-6);
        }
    }
}

TEST_F(CompressedFile, isRefusedWhereTheTypeCannotHoldItAndTheOldFileStays) {
    const Bytes old = testBytes(10);
    writeFile(path_, old);
    const auto refusal = [&](AudioFileTypeID type, std::uint32_t formatID, double rate = 44100,
                             std::uint32_t channels = 2) {
        AudioStreamBasicDescription format;
        format.mSampleRate = rate;
        format.mFormatID = formatID;
        format.mChannelsPerFrame = channels;
        OpenFile file;
        const OSStatus status = tryCreate(path_, type, format, file);
        EXPECT_EQ(file, nullptr);
        return status;
    };
    const OSStatus wrongFormat = kAudioFileUnsupportedDataFormatError;
    for (const std::uint32_t formatID :
         {kAudioFormatMPEG4AAC, kAudioFormatOpus, kAudioFormatFLAC}) {
        EXPECT_EQ(refusal(kAudioFileCAFType, formatID), wrongFormat) << fourCharText(formatID);
    }
    EXPECT_EQ(refusal(kAudioFileM4AType, kAudioFormatOpus), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileM4AType, kAudioFormatLinearPCM), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileMP3Type, kAudioFormatMPEG4AAC), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileOggType, kAudioFormatMPEGLayer3), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileWAVEType, kAudioFormatMPEGLayer3), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileFLACType, fourCharCode("none")), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileMP3Type, kAudioFormatMPEGLayer3, 0), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileMP3Type, kAudioFormatMPEGLayer3, 44100.5), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileMP3Type, kAudioFormatMPEGLayer3, 44100, 0), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileOggType, kAudioFormatOpus, 48000, 3), wrongFormat);
    // What ADTS headers have no code for.
    EXPECT_EQ(refusal(kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 44100, 7), wrongFormat);
    EXPECT_EQ(refusal(kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 10000), wrongFormat);
    EXPECT_EQ(refusal(fourCharCode("none"), kAudioFormatMPEGLayer3),
              kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(readFile(path_), old);
}

TEST_F(CompressedFile, ofConstantPacketsCountsThemByTheirBytes) {
    const OpenFile source = open(samples_["cinema.ac3"]);
    auto format = formatOf(source);
    const auto packet = readPacket(source, 0);
    format.mBytesPerPacket = static_cast<std::uint32_t>(packet.bytes.size());
    const OpenFile file = create(path_, kAudioFileAC3Type, format);
    EXPECT_EQ(write(file, 0, packet.bytes, 5), noErr);
    EXPECT_EQ(packetCount(file), 1U);
}

TEST_F(CompressedFile, takesPacketsOnlyInTheirOrderAndWhole) {
    const OpenFile source = open(samples_["plain.mp3"]);
    const auto first = readPacket(source, 0);
    const OpenFile file = create(path_, kAudioFileMP3Type, formatOf(source));
    EXPECT_EQ(writePacket(file, 1, first), kAudioFileInvalidPacketOffsetError);
    EXPECT_EQ(writePacket(file, 0, first, false), noErr);
    EXPECT_EQ(writePacket(file, 0, first), kAudioFileInvalidPacketOffsetError);
    EXPECT_EQ(write(file, 1, first.bytes, 2), kAudioFileParameterError);
    std::uint32_t count = 1;
    const auto size = static_cast<std::uint32_t>(first.bytes.size());
    for (const AudioStreamPacketDescription& place :
         {AudioStreamPacketDescription{1, 0, size}, AudioStreamPacketDescription{-1, 0, 1},
          AudioStreamPacketDescription{0, 0, 0}}) {
        EXPECT_EQ(
            AudioFileWritePackets(file.get(), false, size, &place, 1, &count, first.bytes.data()),
            kAudioFileParameterError);
        EXPECT_EQ(count, 0U);
        count = 1;
    }
    EXPECT_EQ(packetCount(file), 1U);
    EXPECT_EQ(setCookie(file, testBytes(10)), kAudioFileUnsupportedPropertyError);
}

/// Every form of a cookie, given early, late or never.
class Cookie : public CompressedFile {
 protected:
    enum class When { first, afterThreePackets, never };

    /// Writes the sample's first packets into a new file; the status of the first call that fails,
    /// closing included.
    OSStatus copyWith(const std::string& sample, AudioFileTypeID type, const Bytes& cookie,
                      When when, std::int64_t packets = 40) {
        const SilentStderr silent;
        const OpenFile source = open(samples_[sample]);
        OpenFile file = create(path_, type, formatOf(source));
        for (std::int64_t i = 0; i < packets; ++i) {
            if (i == (when == When::first ? 0 : 3) && when != When::never) {
                if (const OSStatus status = setCookie(file, cookie); status != noErr) {
                    return status;
                }
            }
            if (const OSStatus status = writePacket(file, i, readPacket(source, i), false);
                status != noErr) {
                return status;
            }
        }
        return close(file);
    }

    /// The samples of the first packets, decoded from what was written and from the source.
    void expectTheSameSound(const std::string& sample, int packets = 40) {
        const auto framesOf = [&](const std::filesystem::path& path) {
            return outputOf("ffmpeg -nostdin -v error -flags2 +skip_manual -i " + quoted(path) +
                            " -map 0:a:0 -frames:a " + std::to_string(packets) + " -f md5 - 2>&1");
        };
        EXPECT_EQ(framesOf(path_), framesOf(samples_[sample]));
        EXPECT_EQ(complaintsOf(path_), "");
    }

    Bytes cookieOfWritten() { return cookieOf(open(path_)); }
};

TEST_F(Cookie, ofAacIsTakenInBothFormsAtBothTimes) {
    const Bytes config = bytesFrom({0x12, 0x10, 0x56, 0xE5, 0x00});
    Bytes descriptor =
        bytesFrom({3, 0x80, 0x80, 0x80, 34, 0, 0, 0, 4, 0x80, 0x80, 0x80, 23,   0x40, 0x15, 0,
                   0, 0,    0,    0,    0,  0, 0, 0, 0, 0,    5,    0x80, 0x80, 0x80, 5});
    descriptor.insert(descriptor.end(), config.begin(), config.end());
    const Bytes tail = bytesFrom({6, 1, 2});
    descriptor.insert(descriptor.end(), tail.begin(), tail.end());
    for (const Bytes& cookie : {config, descriptor}) {
        for (const When when : {When::first, When::afterThreePackets}) {
            EXPECT_EQ(copyWith("aac.m4a", kAudioFileM4AType, cookie, when), noErr);
            EXPECT_EQ(cookieOfWritten(), config);
            expectTheSameSound("aac.m4a");
            EXPECT_EQ(copyWith("aac.m4a", kAudioFileAAC_ADTSType, cookie, when), noErr);
            expectTheSameSound("aac.m4a");
        }
    }
    for (const Bytes& cookie :
         {Bytes(), bytesFrom({0x12}), bytesFrom({3}), bytesFrom({3, 5, 0, 0, 0, 4}),
          bytesFrom({3, 9, 0, 0, 0, 5, 1, 0, 0, 0, 0}),
          Bytes(descriptor.begin(), descriptor.begin() + 20)}) {
        EXPECT_EQ(copyWith("aac.m4a", kAudioFileM4AType, cookie, When::first),
                  kAudioFileParameterError);
    }
}

TEST_F(Cookie, ofAacIsMadeWhereNoneComes) {
    for (const AudioFileTypeID type :
         {kAudioFileM4AType, kAudioFileMPEG4Type, kAudioFileAAC_ADTSType}) {
        EXPECT_EQ(copyWith("aac.m4a", type, {}, When::never), noErr);
        EXPECT_EQ(cookieOfWritten(), bytesFrom({0x12, 0x10}));
        expectTheSameSound("aac.m4a");
    }
}

TEST_F(Cookie, ofAacComesOutOfAdtsHeadersWhichAreTakenOff) {
    const Bytes adts = readFile(samples_["adts.aac"]);
    const OpenFile source = open(samples_["adts.aac"]);
    for (const AudioFileTypeID type : {kAudioFileM4AType, kAudioFileAAC_ADTSType}) {
        auto format = formatOf(source);
        format.mSampleRate = 48000;  // the headers know better
        OpenFile file = create(path_, type, format);
        std::size_t offset = 0;
        for (std::int64_t i = 0; i < 40; ++i) {
            const std::size_t size = readPacket(source, i).bytes.size() + 7;
            EXPECT_EQ(write(file, i, std::span(adts).subspan(offset, size), 1), noErr);
            offset += size;
        }
        EXPECT_EQ(close(file), noErr);
        const OpenFile back = open(path_);
        EXPECT_EQ(cookieOf(back), bytesFrom({0x12, 0x10}));
        EXPECT_EQ(readPacket(back, 7).bytes, readPacket(source, 7).bytes);
    }
    // What the ADTS file holds is what was put in, header by header.
    EXPECT_EQ(decodedSum(path_).substr(0, 4), "MD5=");
    const Bytes written = readFile(path_);
    EXPECT_EQ(written.size(), [&] {
        std::size_t size = 0;
        for (std::int64_t i = 0; i < 40; ++i) {
            size += readPacket(source, i).bytes.size() + 7;
        }
        return size;
    }());
}

TEST_F(Cookie, ofAlacIsTakenInThreeFormsAndWaitedFor) {
    const Bytes config = cookieOf(open(samples_["alac.m4a"]));
    ASSERT_EQ(config.size(), 24U);
    Bytes atom = bytesFrom({0, 0, 0, 36, 'a', 'l', 'a', 'c', 0, 0, 0, 0});
    atom.insert(atom.end(), config.begin(), config.end());
    Bytes both = bytesFrom({0, 0, 0, 12, 'f', 'r', 'm', 'a', 'a', 'l', 'a', 'c'});
    both.insert(both.end(), atom.begin(), atom.end());
    for (const Bytes& cookie : {config, atom, both}) {
        for (const AudioFileTypeID type : {kAudioFileM4AType, kAudioFileCAFType}) {
            for (const When when : {When::first, When::afterThreePackets}) {
                EXPECT_EQ(copyWith("alac.m4a", type, cookie, when, 20), noErr);
                EXPECT_EQ(cookieOfWritten(), config);
                expectTheSameSound("alac.m4a", 20);
            }
        }
    }
    EXPECT_EQ(copyWith("alac.m4a", kAudioFileM4AType, testBytes(23), When::first),
              kAudioFileParameterError);
}

TEST_F(Cookie, ofFlacAndVorbisIsWaitedFor) {
    for (const When when : {When::first, When::afterThreePackets}) {
        const Bytes flac = cookieOf(open(samples_["free.flac"]));
        EXPECT_EQ(copyWith("free.flac", kAudioFileFLACType, flac, when, 20), noErr);
        expectTheSameSound("free.flac", 20);
        const Bytes vorbis = cookieOf(open(samples_["vorbis.ogg"]));
        EXPECT_EQ(copyWith("vorbis.ogg", kAudioFileOggType, vorbis, when), noErr);
        expectTheSameSound("vorbis.ogg", 30);
    }
}

TEST_F(Cookie, thatIsMissingFailsTheEndOrTheWriteThatIsTooMuch) {
    for (const auto& [sample, type] : {std::pair{"free.flac", kAudioFileFLACType},
                                       {"vorbis.ogg", kAudioFileOggType},
                                       {"alac.m4a", kAudioFileM4AType},
                                       {"alac.m4a", kAudioFileCAFType}}) {
        EXPECT_EQ(copyWith(sample, type, {}, When::never, 10),
                  kAudioFileUnsupportedDataFormatError);
    }
    const OpenFile source = open(samples_["free.flac"]);
    OpenFile file = create(path_, kAudioFileFLACType, formatOf(source));
    const PacketAndFrames large{testBytes(1 << 20), 0};
    for (std::int64_t i = 0; i < 8; ++i) {
        EXPECT_EQ(writePacket(file, i, large), noErr);
    }
    EXPECT_EQ(writePacket(file, 8, large), kAudioFileUnsupportedDataFormatError);
}

TEST_F(Cookie, ofFlacIsBroughtUpToDateAtTheEnd) {
    // A copy that ends early says how long it is, and has no checksum of audio that is not there.
    const Bytes cookie = cookieOf(open(samples_["free.flac"]));
    EXPECT_EQ(copyWith("free.flac", kAudioFileFLACType, cookie, When::first, 10), noErr);
    EXPECT_EQ(framesByFfmpeg(path_, 2), 10U * 4608);
    EXPECT_EQ(
        outputOf("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 " + quoted(path_)),
        std::to_string(10 * 4608) + "\n");
    EXPECT_EQ(outputOf("sox " + quoted(path_) + " -n stat 2>&1 | grep -c WARN || true"), "0\n");
}

TEST_F(CompressedFile, ofOpusPacketsFromAnEncoderNodeNeedsNothingElse) {
    // One packet a write, no description, no cookie, a record in the encoder's own rate.
    for (const auto& [sample, rate] : {std::pair{"long.opus", 16000}, {"tools.opus", 48000}}) {
        const OpenFile source = open(samples_[sample]);
        AudioStreamBasicDescription format;
        format.mSampleRate = rate;
        format.mFormatID = kAudioFormatOpus;
        format.mChannelsPerFrame = formatOf(source).mChannelsPerFrame;
        OpenFile file = create(path_, kAudioFileOggType, format);
        const auto packets = packetsOf(source);
        for (std::size_t i = 0; i < packets.size(); ++i) {
            EXPECT_EQ(writePacket(file, static_cast<std::int64_t>(i), packets[i], false), noErr);
        }
        const double seconds = durationOf(file);
        EXPECT_EQ(close(file), noErr);

        const OpenFile back = open(path_);
        EXPECT_NEAR(durationOf(back), seconds - 312 / 48000.0, 1e-9);
        EXPECT_EQ(framesByFfmpeg(path_, format.mChannelsPerFrame),
                  static_cast<std::uint64_t>(std::lround(seconds * 48000)) - 312);
        EXPECT_EQ(complaintsOf(path_), "");
        const std::string report = outputOf("opusinfo " + quoted(path_) + " 2>&1");
        EXPECT_NE(report.find("Pre-skip: 312"), std::string::npos) << report;
        EXPECT_NE(report.find("Original sample rate: " + std::to_string(rate) + " Hz"),
                  std::string::npos)
            << report;
        EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;
        EXPECT_EQ(report.find("Note"), std::string::npos) << report;
        outputOf("opusdec --quiet " + quoted(path_) + " " + quoted(samples_ / "decoded.wav") +
                 " 2>&1");
    }
}

TEST_F(CompressedFile, ofAKilledWriterLosesAtMostTheLastSecond) {
    for (const auto& [sample, type] : {std::pair{"adts.aac", kAudioFileM4AType},
                                       {"alac.m4a", kAudioFileMPEG4Type},
                                       {"adts.aac", kAudioFileAAC_ADTSType},
                                       {"lame.mp3", kAudioFileMP3Type},
                                       {"free.flac", kAudioFileFLACType},
                                       {"vorbis.ogg", kAudioFileOggType},
                                       {"long.opus", kAudioFileOggType},
                                       {"cinema.ac3", kAudioFileAC3Type},
                                       {"phone.amr", kAudioFileAMRType}}) {
        SCOPED_TRACE(std::string(sample) + " to " + fourCharText(type));
        const OpenFile source = open(samples_[sample]);
        const auto packets = packetsOf(source);
        const Bytes cookie = cookieOf(source);
        const pid_t child = ::fork();
        if (child == 0) {
            const OpenFile file = create(path_, type, formatOf(source));
            if (!cookie.empty()) {
                setCookie(file, cookie);
            }
            for (std::size_t i = 0; i < packets.size(); ++i) {
                writePacket(file, static_cast<std::int64_t>(i), packets[i]);
            }
            ::kill(::getpid(), SIGKILL);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        const OpenFile file = open(path_);
        EXPECT_GE(durationOf(file), durationOf(source) - 1.0);
        EXPECT_LE(packetCount(file), packets.size());
        EXPECT_EQ(readPacket(file, 3).bytes, packets[3].bytes);
        if (type != kAudioFileMP3Type) {  // where the number of packets is not known any more
            EXPECT_EQ(complaintsOf(path_), "");
        }
    }
}

TEST_F(CompressedFile, tellsOfAFullDisk) {
    const OpenFile source = open(samples_["alac.m4a"]);
    const auto packets = packetsOf(source);
    const Bytes cookie = cookieOf(source);
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    ::getrlimit(RLIMIT_FSIZE, &old);
    for (const AudioFileTypeID type : {kAudioFileM4AType, kAudioFileCAFType}) {
        OpenFile file = create(path_, type, formatOf(source));
        EXPECT_EQ(setCookie(file, cookie), noErr);
        const rlimit small{65536, old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        OSStatus status = noErr;
        for (std::size_t i = 0; i < packets.size() && status == noErr; ++i) {
            status = writePacket(file, static_cast<std::int64_t>(i), packets[i]);
        }
        EXPECT_EQ(status, kAudioFileDiskFullError);
        close(file);
        // What only the end writes fails there.
        file = create(path_, type, formatOf(source));
        EXPECT_EQ(setCookie(file, cookie), noErr);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(writePacket(file, static_cast<std::int64_t>(i), packets[i]), noErr);
        }
        const rlimit none{100, old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &none);
        EXPECT_EQ(close(file), kAudioFileDiskFullError);
        ::setrlimit(RLIMIT_FSIZE, &old);
    }
    std::signal(SIGXFSZ, before);
}

/// Opens a file, asks for everything and reads it all, whatever is wrong with it. Returns the
/// packets read.
std::uint64_t readThrough(const std::filesystem::path& path, std::size_t fileSize) {
    OpenFile file;
    const OSStatus status = tryOpen(path, file);
    if (status != noErr) {
        EXPECT_TRUE(status == kAudioFileUnsupportedFileTypeError ||
                    status == kAudioFileUnsupportedDataFormatError ||
                    status == kAudioFileInvalidFileError)
            << statusText(status);
        return 0;
    }
    const std::uint64_t count = packetCount(file);
    const auto size = property<std::uint64_t>(file, kAudioFilePropertyAudioDataByteCount);
    EXPECT_GE(durationOf(file), 0);
    cookieOf(file);
    if (size <= fileSize) {
        EXPECT_EQ(readAll(file).size(), size);
    }
    return count;
}

TEST_F(CompressedFile, cutAnywhereHoldsTheAudioThatIsThere) {
    for (const CompressedSample& sample : compressedSamples()) {
        SCOPED_TRACE(sample.name);
        const Bytes good = readFile(samples_[sample.name]);
        const std::uint64_t whole = readThrough(samples_[sample.name], good.size());
        const SilentStderr silent;
        std::uint64_t mostPackets = 0;
        for (std::size_t i = 0; i < 36; ++i) {
            const std::size_t size = i < 24 ? i * 41 : good.size() * (i - 23) / 13;
            writeFile(path_, std::span(good).first(std::min(size, good.size())));
            mostPackets = std::max(mostPackets, readThrough(path_, size));
        }
        EXPECT_LE(mostPackets, whole);
    }
}

TEST_F(CompressedFile, damagedAnywhereDoesNoHarm) {
    constexpr std::uint32_t kSeed = 20251;
    std::mt19937 random(kSeed);
    for (const CompressedSample& sample : compressedSamples()) {
        const Bytes good = readFile(samples_[sample.name]);
        const SilentStderr silent;
        for (int round = 0; round < 28; ++round) {
            SCOPED_TRACE(sample.name + ", seed " + std::to_string(kSeed) + ", round " +
                         std::to_string(round));
            Bytes bytes = good;
            // Every other time in the header only, or what stands for it at the end of an MP4.
            const std::size_t range =
                round % 2 == 0 ? bytes.size() : std::min<std::size_t>(1000, bytes.size());
            for (auto changes = random() % 10 + 1; changes > 0; --changes) {
                const std::size_t at = random() % range;
                const bool isAtEnd = round % 4 == 3;
                bytes[isAtEnd ? bytes.size() - 1 - at : at] = static_cast<std::byte>(random());
            }
            writeFile(path_, bytes);
            readThrough(path_, bytes.size());
        }
    }
}

TEST_F(CompressedFile, withJunkBetweenPacketsIsReadAroundIt) {
    for (const char* const name : {"plain.mp3", "adts.aac", "cinema.ac3"}) {
        SCOPED_TRACE(name);
        const Bytes good = readFile(samples_[name]);
        const OpenFile source = open(samples_[name]);
        const auto packets = packetsOf(source);
        // Behind the tenth packet.
        std::size_t at = 0;
        const std::size_t header = std::string(name) == "adts.aac" ? 7 : 0;
        for (std::size_t i = 0; i < 10; ++i) {
            at += packets[i].bytes.size() + header;
        }
        Bytes bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(at));
        bytes.resize(bytes.size() + 3000, std::byte{0x55});
        bytes.insert(bytes.end(), good.begin() + static_cast<std::ptrdiff_t>(at), good.end());
        writeFile(path_, bytes);
        const SilentStderr silent;
        const auto found = packetsOf(open(path_));
        // Every packet that ffmpeg finds, or one less where it joins two pieces into one.
        EXPECT_GE(found.size() + 2, packets.size());
        for (const std::size_t i : {0U, 5U, 8U}) {
            EXPECT_EQ(found[i].bytes, packets[i].bytes) << i;
            EXPECT_EQ(found[found.size() - 1 - i].bytes, packets[packets.size() - 1 - i].bytes)
                << i;
        }
    }
}

// libavformat would print what it thinks of such files, past all levels.
TEST_F(CompressedFile, thatIsOddIsReadInSilence) {
    const Bytes audio = readFile(samples_["lame.mp3"]);
    const auto packets = packetCount(open(samples_["lame.mp3"]));
    for (const Bytes& tag :
         {bytesFrom({'I', 'D', '3', 5, 0, 0, 0, 0, 0, 4, 1, 2, 3, 4}),  // of a version to come
          bytesFrom({'I', 'D', '3', 3, 0, 0, 0, 0, 0,   15,  'T', 'I', 'T',
                     '2', 0,   0,   0, 5, 0, 0, 1, 'a', 'b', 'c', 'd'})}) {  // no byte order mark
        Bytes tagged = tag;
        tagged.insert(tagged.end(), audio.begin(), audio.end());
        writeFile(path_, tagged);
        const SilentStderr silent;
        const OpenFile file = open(path_);
        EXPECT_EQ(packetCount(file), packets);
        EXPECT_EQ(durationOf(file), durationOf(open(samples_["lame.mp3"])));
        EXPECT_EQ(readPacket(file, 5).bytes, readPacket(open(samples_["lame.mp3"]), 5).bytes);
    }
    Bytes caf = readFile(samples_["alac.caf"]);
    std::fill_n(caf.begin() + 20, 8, std::byte{0});  // the rate
    writeFile(path_, caf);
    const SilentStderr silent;
    OpenFile file;
    EXPECT_EQ(tryOpen(path_, file), kAudioFileInvalidFileError);
}

TEST_F(CompressedFile, behindLargeTagsIsFound) {
    // A picture of a megabyte, in two tags.
    for (const char* const name : {"lame.mp3", "adts.aac", "free.flac"}) {
        Bytes bytes;
        for (const std::size_t size : {std::size_t{1} << 20U, std::size_t{300}}) {
            for (const unsigned value : {unsigned{'I'}, unsigned{'D'}, unsigned{'3'}, 4U, 0U, 0U}) {
                bytes.push_back(static_cast<std::byte>(value));
            }
            for (int shift = 21; shift >= 0; shift -= 7) {
                bytes.push_back(
                    static_cast<std::byte>(size >> static_cast<unsigned>(shift) & 0x7FU));
            }
            bytes.resize(bytes.size() + size);
        }
        const Bytes good = readFile(samples_[name]);
        bytes.insert(bytes.end(), good.begin(), good.end());
        writeFile(path_, bytes);
        const SilentStderr silent;
        EXPECT_TRUE(packetsOf(open(path_)) == packetsOf(open(samples_[name]))) << name;
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
        OpenFile file;
        EXPECT_EQ(statusText(tryOpen(path, file)), statusText(kAudioFileUnsupportedFileTypeError))
            << path;
    }
    OpenFile file;
    EXPECT_EQ(tryOpen(make("film.mp4", picture + "\"$OUT\""), file),
              kAudioFileUnsupportedDataFormatError);
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
        EXPECT_EQ(readPacket(file, static_cast<std::int64_t>(i)).bytes.size(), sizes[i]);
    }
}

TEST_F(CompressedFile, leavesTheProcessAsItWas) {
    const std::string locale = std::setlocale(LC_ALL, nullptr);
    const int logLevel = av_log_get_level();
    const OpenFile source = open(samples_["aac.m4a"]);
    const auto packet = readPacket(source, 0);
    {
        const OpenFile file = create(path_, kAudioFileM4AType, formatOf(source));
        EXPECT_EQ(writePacket(file, 0, packet), noErr);
    }
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
    EXPECT_EQ(av_log_get_level(), logLevel);
}

TEST(AudioFileTypes, areThoseThatCanBeReadAndWritten) {
    for (const auto question :
         {kAudioFileGlobalInfo_ReadableTypes, kAudioFileGlobalInfo_WritableTypes}) {
        std::uint32_t size = 0;
        ASSERT_EQ(AudioFileGetGlobalInfoSize(question, 0, nullptr, &size), noErr);
        std::vector<AudioFileTypeID> types(size / sizeof(AudioFileTypeID));
        --size;
        EXPECT_EQ(AudioFileGetGlobalInfo(question, 0, nullptr, &size, types.data()),
                  kAudioFileBadPropertySizeError);
        ++size;
        ASSERT_EQ(AudioFileGetGlobalInfo(question, 0, nullptr, &size, types.data()), noErr);
        std::sort(types.begin(), types.end());
        EXPECT_EQ(std::adjacent_find(types.begin(), types.end()), types.end());
        for (const auto type : {kAudioFileWAVEType, kAudioFileCAFType, kAudioFileSBCType,
                                kAudioFileM4AType, kAudioFileOggType}) {
            EXPECT_TRUE(std::binary_search(types.begin(), types.end(), type)) << fourCharText(type);
        }
    }
    std::uint32_t size = 0;
    EXPECT_EQ(AudioFileGetGlobalInfoSize(fourCharCode("none"), 0, nullptr, &size),
              kAudioFileUnsupportedPropertyError);
}

}  // namespace
}  // namespace zav::test
