// Encoders of queues. The file service writes their packets, and other programs decode the files.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

extern "C" {
#include <libavutil/md5.h>
}

#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "tests/support/AudioFileAccess.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueCodecs.hpp"
#include "tests/support/SilentStderr.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

/// Encodes a whole stream in pieces of whole frames.
EncodedPackets encodeAll(QueueEncoder& encoder, std::span<const std::byte> pcm) {
    std::mt19937 random(5);
    EncodedPackets packets;
    while (!pcm.empty()) {
        const std::size_t size = std::min<std::size_t>(
            pcm.size(), (random() % 3000 + 1) * encoder.pcmFormat().mBytesPerFrame);
        // A copy of exact size, so that a sanitizer finds reads beyond its end.
        const Bytes piece(pcm.begin(), pcm.begin() + static_cast<std::ptrdiff_t>(size));
        encoder.encode(piece, packets);
        pcm = pcm.subspan(size);
    }
    encoder.finish(packets);
    return packets;
}

/// Two tones in each channel, different in every channel, in the upper 16 or 24 bits.
Bytes tones(const AudioStreamBasicDescription& pcm, std::size_t frameCount) {
    constexpr double kTurn = 6.283185307179586;
    Bytes bytes;
    for (std::size_t frame = 0; frame < frameCount; ++frame) {
        for (std::uint32_t channel = 0; channel < pcm.mChannelsPerFrame; ++channel) {
            const double t = kTurn * static_cast<double>(frame) * (channel + 1) / pcm.mSampleRate;
            const auto sample =
                static_cast<std::int32_t>(1e9 * std::sin(t * 200) + 0.5e9 * std::sin(t * 450));
            if (pcm.mBitsPerChannel == 32) {
                bytes.push_back(std::byte{0});
                bytes.push_back(static_cast<std::byte>(sample >> 8));
            }
            bytes.push_back(static_cast<std::byte>(sample >> 16));
            bytes.push_back(static_cast<std::byte>(sample >> 24));
        }
    }
    return bytes;
}

class QueueEncoding : public testing::Test {
 protected:
    /// Tones, and what an encoder makes of them.
    struct Encoded {
        Bytes pcm;
        Bytes firstCookie;  ///< before the first packet
        EncodedPackets packets;
    };

    /// Encodes tones and writes the packets into a file as a recorder does: the cookie first, and
    /// for FLAC again at the end. Then checks that a second stream gives the same packets.
    Encoded record(AudioFileTypeID type, QueueEncoder& encoder, std::size_t frameCount) {
        const auto cookie = [&] {
            return Bytes(encoder.magicCookie().begin(), encoder.magicCookie().end());
        };
        Encoded encoded{tones(encoder.pcmFormat(), frameCount), cookie(), {}};
        encoded.packets = encodeAll(encoder, encoded.pcm);
        const auto& [bytes, places] = encoded.packets;
        {
            const OpenFile file = create(path_, type, encoder.streamFormat());
            EXPECT_EQ(setCookie(file, encoded.firstCookie), noErr);
            auto count = static_cast<std::uint32_t>(places.size());
            EXPECT_EQ(
                AudioFileWritePackets(file.get(), false, static_cast<std::uint32_t>(bytes.size()),
                                      places.data(), 0, &count, bytes.data()),
                noErr);
            if (type == kAudioFileFLACType) {
                EXPECT_EQ(setCookie(file, encoder.magicCookie()), noErr);
            }
        }
        const Bytes lastCookie = cookie();
        const EncodedPackets again = encodeAll(encoder, encoded.pcm);
        EXPECT_TRUE(again.bytes == bytes);
        EXPECT_TRUE(again.descriptions == places);
        EXPECT_TRUE(cookie() == lastCookie);
        return encoded;
    }

    /// Decodes the written file to the sample format and rate of `pcm`, with the file's channels.
    Bytes decodeByFfmpeg(const AudioStreamBasicDescription& pcm) const {
        return bytesOutputOf("ffmpeg -nostdin -v error -i " + quoted(path_) + " -ar " +
                             std::to_string(static_cast<int>(pcm.mSampleRate)) + rawFormat(pcm) +
                             "-");
    }

    TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "written";
};

TEST_F(QueueEncoding, withoutLossIsDecodedBitByBitByOtherPrograms) {
    struct Case {
        AudioFileTypeID type;
        AudioStreamBasicDescription format;
        std::size_t frameCount;
        std::uint32_t framesPerPacket;
        std::uint32_t bits = 16;
    };
    constexpr auto k24 = kLosslessFormatFlag_24BitSourceData;
    const std::vector<Case> cases = {
        {kAudioFileM4AType, compressedFormat(kAudioFormatALAC, 44100, 2), 50001, 4096},
        {kAudioFileM4AType, compressedFormat(kAudioFormatALAC, 16000, 1), 2 * 4096 + 1, 4096},
        {kAudioFileM4AType, compressedFormat(kAudioFormatALAC, 48000, 6, 4096), 4096, 4096},
        {kAudioFileM4AType, compressedFormat(kAudioFormatALAC, 48000, 8), 9000, 4096},
        {kAudioFileCAFType, compressedFormat(kAudioFormatALAC, 48000, 2, 0, k24), 50001, 4096, 24},
        {kAudioFileM4AType,
         compressedFormat(kAudioFormatALAC, 96000, 1, 0, kLosslessFormatFlag_20BitSourceData), 5000,
         4096, 24},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 44100, 2), 50001, 4608},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 8000, 1), 3 * 576 + 1, 576},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 48000, 3, 1000), 12000, 1000},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 192000, 8, 16), 1001, 16},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 96000, 2, 0, k24), 50001, 8192, 24},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 192000, 2), 50001, 8192},
        {kAudioFileFLACType, compressedFormat(kAudioFormatFLAC, 192000, 8, 0, k24), 9000, 1024, 24},
        {kAudioFileOggType, compressedFormat(kAudioFormatFLAC, 44100, 2), 50001, 4608},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(fourCharText(test.format.mFormatID) + " " +
                     std::to_string(test.format.mSampleRate) + " " +
                     std::to_string(test.format.mChannelsPerFrame));
        const SilentStderr silent;
        const auto encoder = moduleTable<CompressedCodecs>()->makeEncoder(test.format);
        EXPECT_EQ(encoder->streamFormat().mFramesPerPacket, test.framesPerPacket);
        EXPECT_EQ(encoder->pcmFormat().mBitsPerChannel, test.bits == 16 ? 16U : 32U);
        const auto [pcm, firstCookie, packets] = record(test.type, *encoder, test.frameCount);

        // Only a short last packet has its own duration.
        const auto rest = static_cast<std::uint32_t>(test.frameCount % test.framesPerPacket);
        EXPECT_EQ(packets.descriptions.size(),
                  test.frameCount / test.framesPerPacket + (rest == 0 ? 0 : 1));
        for (const auto& place : packets.descriptions) {
            EXPECT_EQ(place.mVariableFramesInPacket,
                      &place == &packets.descriptions.back() ? rest : 0);
        }

        EXPECT_EQ(complaintsOf(path_), "");
        EXPECT_TRUE(decodeByFfmpeg(encoder->pcmFormat()) == pcm);
        if (test.type == kAudioFileFLACType && test.bits == 16) {
            // The last cookie has the checksum of all audio. The cookie of a new stream has none.
            std::array<std::uint8_t, 16> sum{};
            av_md5_sum(sum.data(), reinterpret_cast<const std::uint8_t*>(pcm.data()), pcm.size());
            EXPECT_TRUE(std::ranges::equal(encoder->magicCookie().last(sum.size()),
                                           std::as_bytes(std::span(sum))));
            EncodedPackets begun;
            encoder->encode(pcm, begun);
            EXPECT_TRUE(std::ranges::equal(encoder->magicCookie(), firstCookie));
        }
        EXPECT_EQ(formatOf(open(path_)), encoder->streamFormat());
        EXPECT_EQ(durationOf(open(path_)),
                  static_cast<double>(test.frameCount) / test.format.mSampleRate);
    }
}

TEST_F(QueueEncoding, withLossSoundsLikeItsInputInOtherPrograms) {
    struct Case {
        AudioFileTypeID type;
        AudioStreamBasicDescription format;
        std::uint32_t framesPerPacket;
        std::size_t priming;  // frames that are heard before the input
    };
    const std::vector<Case> cases = {
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 44100, 2), 1024, 1024},
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 16000, 1, 1024, 2), 1024, 1024},
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 8000, 1), 1024, 1024},
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 48000, 3), 1024, 1024},
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 48000, 6), 1024, 1024},
        {kAudioFileM4AType, compressedFormat(kAudioFormatMPEG4AAC, 96000, 8), 1024, 1024},
        {kAudioFileAAC_ADTSType, compressedFormat(kAudioFormatMPEG4AAC, 44100, 2), 1024, 1024},
        // Players leave out the priming that its header declares.
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 48000, 2), 960, 0},
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 48000, 1, 120), 120, 0},
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 24000, 2, 960), 960, 0},
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 16000, 1, 960), 960, 0},
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 12000, 1, 1440), 1440, 0},
        {kAudioFileOggType, compressedFormat(kAudioFormatOpus, 8000, 1), 160, 0},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(fourCharText(test.format.mFormatID) + " " +
                     std::to_string(test.format.mSampleRate) + " " +
                     std::to_string(test.format.mChannelsPerFrame));
        const std::uint32_t channels = test.format.mChannelsPerFrame;
        const SilentStderr silent;
        const auto encoder = moduleTable<CompressedCodecs>()->makeEncoder(test.format);
        constexpr std::size_t kFrames = 40123;
        const auto [pcm, cookie, packets] = record(test.type, *encoder, kFrames);
        EXPECT_EQ(encoder->streamFormat().mFramesPerPacket, test.framesPerPacket);
        EXPECT_TRUE(std::ranges::equal(encoder->magicCookie(), cookie));
        for (const auto& place : packets.descriptions) {
            EXPECT_EQ(place.mVariableFramesInPacket, 0U);
            EXPECT_LE(place.mDataByteSize, encoder->maximumPacketSize());
        }

        EXPECT_EQ(complaintsOf(path_), "");
        const auto decoded = samplesOf(decodeByFfmpeg(encoder->pcmFormat()), encoder->pcmFormat());
        ASSERT_GE(decoded.size(), channels * (kFrames + test.priming));
        EXPECT_LE(decoded.size(),
                  channels * (kFrames + test.priming + 2 * std::size_t{test.framesPerPacket}));
        const auto input = samplesOf(pcm, encoder->pcmFormat());
        const std::span heard = std::span(decoded).subspan(channels * test.priming);
        for (std::uint32_t channel = 0; channel < channels; ++channel) {
            std::vector<double> in;
            std::vector<double> out;
            for (std::size_t i = channel; i < input.size(); i += channels) {
                in.push_back(input[i]);
                out.push_back(heard[i]);
            }
            // With many channels, the fourth one carries only low frequencies.
            if (channel != 3) {
                EXPECT_GT(signalToNoise(in, out), 10) << channel;
            }
        }
    }
}

TEST_F(QueueEncoding, ofNoiseStaysWithinTheLargestPacket) {
    for (const auto& format :
         {compressedFormat(kAudioFormatALAC, 44100, 1),
          compressedFormat(kAudioFormatALAC, 44100, 8),
          compressedFormat(kAudioFormatALAC, 44100, 2, 0, kLosslessFormatFlag_24BitSourceData),
          compressedFormat(kAudioFormatFLAC, 44100, 2),
          compressedFormat(kAudioFormatFLAC, 44100, 8, 16),
          compressedFormat(kAudioFormatFLAC, 44100, 2, 65535, kLosslessFormatFlag_24BitSourceData),
          compressedFormat(kAudioFormatMPEG4AAC, 8000, 1),
          compressedFormat(kAudioFormatMPEG4AAC, 96000, 8),
          compressedFormat(kAudioFormatOpus, 48000, 2),
          compressedFormat(kAudioFormatOpus, 8000, 1, 960)}) {
        SCOPED_TRACE(fourCharText(format.mFormatID) + " " +
                     std::to_string(format.mChannelsPerFrame));
        const auto encoder = moduleTable<CompressedCodecs>()->makeEncoder(format);
        const std::size_t frameCount = 3 * std::size_t{encoder->streamFormat().mFramesPerPacket};
        const EncodedPackets packets =
            encodeAll(*encoder, testBytes(frameCount * encoder->pcmFormat().mBytesPerFrame));
        EXPECT_GE(packets.descriptions.size(), 3U);
        for (const auto& place : packets.descriptions) {
            EXPECT_LE(place.mDataByteSize, encoder->maximumPacketSize());
        }
    }
}

TEST_F(QueueEncoding, givesPacketsOnlyIfThereIsAudio) {
    for (const std::uint32_t formatID :
         {kAudioFormatMPEG4AAC, kAudioFormatALAC, kAudioFormatFLAC, kAudioFormatOpus}) {
        SCOPED_TRACE(fourCharText(formatID));
        const auto encoder =
            moduleTable<CompressedCodecs>()->makeEncoder(compressedFormat(formatID, 48000, 2));
        EXPECT_TRUE(encodeAll(*encoder, {}).descriptions.empty());
        const Bytes oneFrame(encoder->pcmFormat().mBytesPerFrame);
        EXPECT_FALSE(encodeAll(*encoder, oneFrame).descriptions.empty());
    }
}

TEST_F(QueueEncoding, toAlacOfManyChannelsCanEndAnywhere) {
    for (std::uint32_t channels = 1; channels <= 8; ++channels) {
        const auto encoder = moduleTable<CompressedCodecs>()->makeEncoder(
            compressedFormat(kAudioFormatALAC, 48000, channels));
        for (const std::uint32_t rest : {1U, 2U, 5U, 15U, 17U}) {
            const EncodedPackets packets =
                encodeAll(*encoder, testBytes(rest * encoder->pcmFormat().mBytesPerFrame));
            ASSERT_EQ(packets.descriptions.size(), 1U);
            EXPECT_EQ(packets.descriptions[0].mVariableFramesInPacket,
                      channels > 2 ? std::max(rest, 16U) : rest);
        }
    }
}

TEST(QueueEncoders, refuseWhatTheyCannotEncodeAtOnce) {
    const auto bitsFormat = [](std::uint32_t formatID, std::uint32_t bits,
                               std::uint32_t bytesPerPacket = 0) {
        auto format = compressedFormat(formatID, 48000, 2);
        format.mBitsPerChannel = bits;
        format.mBytesPerPacket = bytesPerPacket;
        return format;
    };
    const SilentStderr silent;
    const std::vector<AudioStreamBasicDescription> refused = {
        compressedFormat(fourCharCode("none"), 48000, 2),
        compressedFormat(kAudioFormatLinearPCM, 48000, 2),
        compressedFormat(kAudioFormatMPEGLayer3, 48000, 2),
        compressedFormat(kAudioFormatVorbis, 48000, 2),
        compressedFormat(kAudioFormatMPEG4AAC, 7350, 2),
        compressedFormat(kAudioFormatMPEG4AAC, 10000, 2),
        compressedFormat(kAudioFormatMPEG4AAC, 48000, 7),
        compressedFormat(kAudioFormatMPEG4AAC, 48000, 2, 960),
        compressedFormat(kAudioFormatMPEG4AAC, 48000, 2, 0, 5),
        compressedFormat(kAudioFormatALAC, 48000, 2, 1000),
        compressedFormat(kAudioFormatALAC, 48000, 2, 0, kLosslessFormatFlag_32BitSourceData),
        compressedFormat(kAudioFormatFLAC, 48000, 2, 15),
        compressedFormat(kAudioFormatFLAC, 48000, 2, 65536),
        compressedFormat(kAudioFormatFLAC, 48000, 2, 0xFFFFFFFF),
        compressedFormat(kAudioFormatOpus, 44100, 2),
        compressedFormat(kAudioFormatOpus, 48000, 3),
        compressedFormat(kAudioFormatOpus, 48000, 2, 961),
        compressedFormat(kAudioFormatOpus, 48000, 2, 24),
        compressedFormat(kAudioFormatOpus, 48000, 2, 48000),
        bitsFormat(kAudioFormatALAC, 8),
        bitsFormat(kAudioFormatFLAC, 12),
        bitsFormat(kAudioFormatFLAC, 16, 1000),
    };
    expectRefusals(moduleTable<CompressedCodecs>()->makeEncoder,
                   {kAudioFormatMPEG4AAC, kAudioFormatALAC, kAudioFormatFLAC, kAudioFormatOpus},
                   refused);
}

}  // namespace
}  // namespace zav::test
