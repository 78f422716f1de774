// Decoders of queues, compared with ffmpeg.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedSamples.hpp"
#include "tests/support/CompressedStream.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueCodecs.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

std::unique_ptr<QueueDecoder> makeDecoder(const CompressedStream& stream) {
    auto decoder = moduleTable<CompressedCodecs>()->makeDecoder(stream.format);
    if (!stream.cookie.empty()) {
        decoder->setMagicCookie(stream.cookie);
    }
    return decoder;
}

/// Decodes a whole stream from one buffer.
Bytes decodeAll(QueueDecoder& decoder, const CompressedStream& stream) {
    Bytes pcm;
    decoder.decode(stream.bytes, stream.places, pcm);
    decoder.finish(pcm);
    return pcm;
}

/// Decodes bytes without descriptions, in pieces whose sizes `nextSize` returns.
Bytes decodePieces(QueueDecoder& decoder, std::span<const std::byte> bytes,
                   const std::function<std::size_t()>& nextSize) {
    Bytes pcm;
    while (!bytes.empty()) {
        const std::size_t size = std::min(bytes.size(), nextSize());
        // A copy of exact size, so that a sanitizer finds reads beyond its end.
        const Bytes piece(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        decoder.decode(piece, {}, pcm);
        bytes = bytes.subspan(size);
    }
    decoder.finish(pcm);
    return pcm;
}

/// What ffmpeg decodes, with priming, in the sample format of `pcm`.
Bytes decodeByFfmpeg(const std::filesystem::path& path, const AudioStreamBasicDescription& pcm) {
    return bytesOutputOf("ffmpeg -nostdin -v error -flags2 +skip_manual -i " + quoted(path) +
                         " -map 0:a:0" + rawFormat(pcm) + "-");
}

class QueueDecoding : public testing::Test {
 protected:
    /// Makes a further sample.
    std::filesystem::path make(const std::string& name, const std::string& options) {
        const auto input = samples_["free.flac"];
        std::filesystem::path path = samples_ / name;
        outputOf("ffmpeg -nostdin -v error -y -i " + quoted(input) + " " + options + " " +
                 quoted(path));
        return path;
    }

    CompressedSampleFolder samples_;
};

TEST_F(QueueDecoding, givesWhatFfmpegGivesForEveryNewStream) {
    std::vector<std::filesystem::path> paths = {
        make("deep.flac", "-af volume=0.3 -sample_fmt s32"),
        make("deep.m4a", "-c:a alac -af volume=0.3 -sample_fmt s32p"),
        make("mono.m4a", "-ac 1 -ar 16000"),
        make("six.m4a", "-ac 6"),
        make("six.ac3", "-ac 6 -ar 48000"),
    };
    for (const CompressedSample& sample : compressedSamples()) {
        paths.push_back(samples_[sample.name]);
    }
    for (const auto& path : paths) {
        SCOPED_TRACE(path.filename());
        const CompressedStream stream = readStream(path);
        const SilentStderr silent;
        const auto decoder = makeDecoder(stream);
        const auto pcm = decoder->pcmFormat();
        EXPECT_EQ(pcm.mSampleRate, stream.format.mSampleRate);
        EXPECT_EQ(pcm.mChannelsPerFrame, stream.format.mChannelsPerFrame);
        const Bytes decoded = decodeAll(*decoder, stream);
        EXPECT_GT(decoded.size(), 0U);
        EXPECT_TRUE(decoded == decodeByFfmpeg(path, pcm));
        for (const AudioStreamPacketDescription& place : stream.places) {
            ASSERT_LE(place.mDataByteSize, decoder->maximumPacketSize());
        }
        EXPECT_TRUE(decodeAll(*decoder, stream) == decoded);
        Bytes dropped;
        decoder->decode(stream.bytes, std::span(stream.places).first(20), dropped);
        decoder->decode(std::span(stream.bytes).first(100), {}, dropped);
        decoder->reset();
        EXPECT_TRUE(decodeAll(*decoder, stream) == decoded);
    }
}

TEST_F(QueueDecoding, needsNoCookieIfTheRecordIsEnough) {
    for (const char* const name :
         {"aac.m4a", "alac.m4a", "alac.caf", "free.flac", "tools.opus", "long.opus"}) {
        SCOPED_TRACE(name);
        CompressedStream stream = readStream(samples_[name]);
        const Bytes withCookie = decodeAll(*makeDecoder(stream), stream);
        stream.cookie.clear();
        const auto decoder = makeDecoder(stream);
        EXPECT_TRUE(decodeAll(*decoder, stream) == withCookie);
    }
    // Otherwise packets are left out until the cookie is set.
    CompressedStream vorbis = readStream(samples_["vorbis.ogg"]);
    CompressedStream alac = readStream(samples_["alac.m4a"]);
    alac.format.mFormatFlags = 0;
    for (CompressedStream& stream : std::vector{vorbis, alac}) {
        const Bytes cookie = std::exchange(stream.cookie, {});
        const auto decoder = makeDecoder(stream);
        EXPECT_TRUE(decodeAll(*decoder, stream).empty());
        decoder->setMagicCookie(cookie);
        EXPECT_FALSE(decodeAll(*decoder, stream).empty());
    }
}

// MagicCookieTest tests the forms of cookies.
TEST_F(QueueDecoding, continuesAfterACookieIsRefused) {
    const CompressedStream alac = readStream(samples_["alac.m4a"]);
    Bytes wide = alac.cookie;
    wide[0] = std::byte{1};  // 16 million frames in a packet
    for (const CompressedStream& stream : {readStream(samples_["adts.aac"]), alac}) {
        const auto decoder = makeDecoder(stream);
        const Bytes pcm = decodeAll(*decoder, stream);
        for (const Bytes& bad : {Bytes(), Bytes(1), Bytes(20), wide}) {
            EXPECT_EQ(statusOf([&] { decoder->setMagicCookie(bad); }),
                      kAudioQueueErr_InvalidPropertyValue)
                << bad.size();
        }
        EXPECT_TRUE(decodeAll(*decoder, stream) == pcm);
        decoder->setMagicCookie(stream.cookie);
        EXPECT_TRUE(decodeAll(*decoder, stream) == pcm);
    }
    const auto mp3 = makeDecoder(readStream(samples_["lame.mp3"]));
    EXPECT_EQ(statusOf([&] { mp3->setMagicCookie(Bytes(24)); }), kAudioQueueErr_InvalidProperty);
}

TEST_F(QueueDecoding, findsPacketsWhereverTheStreamIsCut) {
    std::mt19937 random(11);
    for (const char* const name :
         {"lame.mp3", "slow.mp3", "two.mp2", "adts.aac", "cinema.ac3", "free.flac", "phone.amr"}) {
        SCOPED_TRACE(name);
        CompressedStream stream = readStream(samples_[name]);
        const Bytes described = decodeAll(*makeDecoder(stream), stream);
        if (stream.format.mFormatID == kAudioFormatMPEG4AAC) {
            stream.bytes = readFile(samples_[name]);  // with the headers
            stream.cookie.clear();
        } else if (stream.format.mFormatID == kAudioFormatAMR) {
            stream.format.mBytesPerPacket = 32;
        }
        const auto decoder = makeDecoder(stream);
        const SilentStderr silent;
        const auto sizes = std::vector<std::function<std::size_t()>>{
            [&] { return stream.bytes.size(); },
            [] { return std::size_t{1}; },
            [&] { return std::size_t{random() % 3000 + 1}; },
            [&] { return std::size_t{random() % 40 + 1}; },
        };
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            EXPECT_TRUE(decodePieces(*decoder, stream.bytes, sizes[i]) == described) << i;
        }
    }
}

TEST_F(QueueDecoding, findsPacketsAfterMuchJunk) {
    for (const char* const name : {"plain.mp3", "two.mp2", "adts.aac", "cinema.ac3"}) {
        SCOPED_TRACE(name);
        const CompressedStream stream = readStream(samples_[name]);
        const auto decoder = makeDecoder(stream);
        const std::size_t whole = decodeAll(*decoder, stream).size();
        const Bytes bytes = joined({Bytes(1000000, std::byte{0xFF}), readFile(samples_[name])});
        const SilentStderr silent;
        const Bytes pcm = decodePieces(*decoder, bytes, [] { return std::size_t{5000}; });
        const std::size_t packetSize =
            std::size_t{stream.format.mFramesPerPacket} * decoder->pcmFormat().mBytesPerFrame;
        EXPECT_LE(pcm.size(), whole);
        // The end of the junk can look like a header whose packet reaches into the real ones.
        EXPECT_GE(pcm.size() + 4 * packetSize, whole);
    }
}

TEST_F(QueueDecoding, takesABufferWithoutDescriptionsForOnePacket) {
    for (const char* const name : {"aac.m4a", "alac.m4a", "vorbis.ogg", "tools.opus"}) {
        const CompressedStream stream = readStream(samples_[name]);
        const auto decoder = makeDecoder(stream);
        const Bytes described = decodeAll(*decoder, stream);
        // With descriptions, packets can begin anywhere.
        CompressedStream moved = stream;
        moved.bytes = joined({testBytes(7), stream.bytes});
        for (AudioStreamPacketDescription& place : moved.places) {
            place.mStartOffset += 7;
        }
        EXPECT_TRUE(decodeAll(*decoder, moved) == described) << name;
        std::size_t next = 0;
        EXPECT_TRUE(decodePieces(*decoder, stream.bytes,
                                 [&] {
                                     return std::size_t{stream.places[next++].mDataByteSize};
                                 }) == described)
            << name;
    }
}

TEST_F(QueueDecoding, convertsAStreamThatDiffersFromItsRecord) {
    struct Case {
        const char* name;
        double rate;
        std::uint32_t channels;
    };
    for (const auto& [name, rate, channels] :
         {Case{"lame.mp3", 48000, 2}, Case{"lame.mp3", 44100, 1}, Case{"adts.aac", 32000, 1},
          Case{"free.flac", 96000, 2}, Case{"slow.mp3", 44100, 2}}) {
        SCOPED_TRACE(name);
        CompressedStream stream = readStream(samples_[name]);
        const auto honest = makeDecoder(stream);
        const auto raw = samples_ / "raw";
        writeFile(raw, decodeAll(*honest, stream));
        stream.format.mSampleRate = rate;
        stream.format.mChannelsPerFrame = channels;
        stream.cookie.clear();
        if (stream.format.mFormatID == kAudioFormatMPEG4AAC) {
            stream.bytes = readFile(samples_[name]);  // with headers, which contain the real rate
            stream.places.clear();
        }
        const auto decoder = makeDecoder(stream);
        const auto pcm = decoder->pcmFormat();
        EXPECT_EQ(pcm.mSampleRate, rate);
        EXPECT_EQ(pcm.mChannelsPerFrame, channels);
        const Bytes decoded = decodeAll(*decoder, stream);
        const Bytes expected =
            bytesOutputOf("ffmpeg -nostdin -v error " + rawOptions(honest->pcmFormat()) + " -i " +
                          quoted(raw) + " " + rawOptions(pcm) + " -");
        // ffmpeg's resampler cuts the last frames in another place.
        EXPECT_NEAR(static_cast<double>(decoded.size()), static_cast<double>(expected.size()),
                    100 * pcm.mBytesPerFrame);
        EXPECT_GT(signalToNoise(samplesOf(expected, pcm), samplesOf(decoded, pcm)), 60);
    }
}

TEST_F(QueueDecoding, leavesOutOnlyWhatIsDamaged) {
    constexpr std::uint32_t kSeed = 31;
    std::mt19937 random(kSeed);
    for (const CompressedSample& sample : compressedSamples()) {
        const CompressedStream good = readStream(samples_[sample.name]);
        const auto decoder = makeDecoder(good);
        const std::size_t whole = decodeAll(*decoder, good).size();
        const SilentStderr silent;
        for (int round = 0; round < 30; ++round) {
            SCOPED_TRACE(sample.name + ", seed " + std::to_string(kSeed) + ", round " +
                         std::to_string(round));
            CompressedStream bad = good;
            // A few wrong bytes, or nothing but junk.
            for (auto changes = random() % 200 + 1; changes > 0; --changes) {
                bad.bytes[random() % bad.bytes.size()] = static_cast<std::byte>(random());
            }
            if (round % 10 == 9) {
                bad.bytes = testBytes(bad.bytes.size(), static_cast<std::uint32_t>(round));
            }
            if (round % 3 == 2) {
                bad.places.clear();
            }
            EXPECT_LE(decodeAll(*decoder, bad).size(), 20 * whole + 1000000);
        }
        EXPECT_EQ(decodeAll(*decoder, good).size(), whole);
    }
    // A FLAC frame with a wrong checksum is left out completely.
    CompressedStream flac = readStream(samples_["free.flac"]);
    const auto decoder = makeDecoder(flac);
    Bytes rest = decodeAll(*decoder, flac);
    const auto packetSize = std::ptrdiff_t{4} * flac.format.mFramesPerPacket;
    rest.erase(rest.begin() + 3 * packetSize, rest.begin() + 4 * packetSize);
    flac.bytes[static_cast<std::size_t>(flac.places[3].mStartOffset) + 4000] ^= std::byte{4};
    const SilentStderr silent;
    EXPECT_TRUE(decodeAll(*decoder, flac) == rest);
}

TEST(QueueDecoders, refuseWhatTheyCannotDecodeAtOnce) {
    auto largePackets = compressedFormat(kAudioFormatMPEGLayer3, 44100, 2, 1152);
    largePackets.mBytesPerPacket = 5000;
    expectRefusals(
        moduleTable<CompressedCodecs>()->makeDecoder,
        {kAudioFormatMPEG4AAC, kAudioFormatMPEGLayer1, kAudioFormatMPEGLayer2,
         kAudioFormatMPEGLayer3, kAudioFormatALAC, kAudioFormatFLAC, kAudioFormatOpus,
         kAudioFormatVorbis, kAudioFormatAC3},
        {compressedFormat(kAudioFormatAMR, 8000, 2), compressedFormat(kAudioFormatAMR, 16000, 1),
         compressedFormat(kAudioFormatMPEGLayer3, 96000, 2),
         compressedFormat(kAudioFormatMPEGLayer3, 44100, 3), largePackets,
         compressedFormat(kAudioFormatAC3, 48000, 7),
         compressedFormat(kAudioFormatALAC, 48000, 2, 65536),
         compressedFormat(kAudioFormatLinearPCM, 48000, 2),
         compressedFormat(fourCharCode("none"), 48000, 2)});
    EXPECT_NO_THROW(
        moduleTable<CompressedCodecs>()->makeDecoder(compressedFormat(kAudioFormatAMR, 8000, 1)));
}

}  // namespace
}  // namespace zav::test
