#include "tests/support/CompressedSamples.hpp"

#include <algorithm>
#include <span>

#include "ZAVAudioStreaming/support/Endian.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/CompressedStream.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {

using namespace detail;

namespace {

constexpr std::size_t kFrames = 123457;  // 2.8 s, not a multiple of any codec's packets

std::string ffmpegTo(const std::string& options) {
    return "ffmpeg -nostdin -v error -y -f s16le -ar 44100 -ac 2 -i $IN " + options + " $OUT";
}

std::vector<std::byte> text(const std::string& letters) {
    const auto bytes = std::as_bytes(std::span(letters));
    return {bytes.begin(), bytes.end()};
}

std::vector<std::byte> bigEndian(std::uint64_t value, std::size_t size) {
    std::vector<std::byte> bytes(size);
    putBigEndian(bytes, value);
    return bytes;
}

/// Frames of 12.2 kbit/s. No packaged program encodes AMR.
std::vector<std::byte> makeAmr() {
    auto bytes = text("#!AMR\n");
    for (std::uint32_t frame = 0; frame < 140; ++frame) {
        bytes = joined({bytes, bytesFrom({0x3C}), testBytes(31, frame + 1)});
    }
    return bytes;
}

/// The packets of an ADTS file in CAF, which no packaged program writes.
std::vector<std::byte> makeAacInCaf(const CompressedStream& adts) {
    std::vector<std::byte> sizes;
    for (const AudioStreamPacketDescription& place : adts.places) {
        const std::uint32_t size = place.mDataByteSize;
        sizes = joined({sizes, bigEndian((size << 1U & 0x7F00U) | 0x8000U | (size & 0x7FU), 2)});
    }
    const std::uint64_t count = adts.places.size();
    constexpr std::uint64_t k44100 = 0x40E5888000000000;
    const auto description =
        joined({text("desc"), bigEndian(32, 8), bigEndian(k44100, 8), text("aac "), bigEndian(0, 8),
                bigEndian(1024, 4), bigEndian(2, 4), bigEndian(0, 4)});
    // ES descriptor, decoder configuration, AudioSpecificConfig 12 10. libavformat requires sizes
    // of four bytes.
    const auto cookie =
        joined({text("kuki"), bigEndian(36, 8), bigEndian(0x0380808022, 5), bigEndian(0, 3),
                bigEndian(0x0480808014, 5), bigEndian(0x4015, 2), bigEndian(0, 11),
                bigEndian(0x0580808002, 5), bigEndian(0x1210, 2), bigEndian(0x060102, 3)});
    const auto table = joined({text("pakt"), bigEndian(24 + sizes.size(), 8), bigEndian(count, 8),
                               bigEndian(count * 1024, 8), bigEndian(0, 8), sizes});
    return joined({text("caff"), bigEndian(0x00010000, 4), description, cookie, table, text("data"),
                   bigEndian(adts.bytes.size() + 4, 8), bigEndian(0, 4), adts.bytes});
}

}  // namespace

const std::vector<CompressedSample>& compressedSamples() {
    static const std::vector<CompressedSample> samples = {
        {"lame.mp3", "lame --quiet -r -s 44.1 --bitwidth 16 -V 4 - $OUT < $IN 2>/dev/null",
         kAudioFileMP3Type, kAudioFormatMPEGLayer3, 44100, 2, 1152, 0, kFrames},
        {"plain.mp3", ffmpegTo("-b:a 96k -write_xing 0 -id3v2_version 0"), kAudioFileMP3Type,
         kAudioFormatMPEGLayer3, 44100, 2, 1152, 0},
        {"slow.mp3", ffmpegTo("-ar 16000 -ac 1 -b:a 24k"), kAudioFileMP3Type,
         kAudioFormatMPEGLayer3, 16000, 1, 576, 0},
        {"two.mp2", ffmpegTo("-c:a mp2"), kAudioFileMP3Type, kAudioFormatMPEGLayer2, 44100, 2, 1152,
         0},
        {"adts.aac", ffmpegTo(""), kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 44100, 2, 1024, 2},
        {"aac.m4a", ffmpegTo(""), kAudioFileM4AType, kAudioFormatMPEG4AAC, 44100, 2, 1024, 5,
         kFrames},
        // Has no edit list, so its priming counts as audio.
        {"fragments.mp4", ffmpegTo("-movflags empty_moov+delay_moov -frag_duration 500000"),
         kAudioFileMPEG4Type, kAudioFormatMPEG4AAC, 44100, 2, 1024, 5, kFrames + 1024},
        {"video.mp4", ffmpegTo("-f lavfi -i testsrc=d=3:s=64x64:r=5 -map 1:v -map 0:a"),
         kAudioFileMPEG4Type, kAudioFormatMPEG4AAC, 44100, 2, 1024, 5, kFrames},
        {"aac.caf", "", kAudioFileCAFType, kAudioFormatMPEG4AAC, 44100, 2, 1024, 2},
        {"alac.m4a", ffmpegTo("-c:a alac"), kAudioFileM4AType, kAudioFormatALAC, 44100, 2, 4096, 24,
         kFrames},
        {"alac.caf", ffmpegTo("-c:a alac"), kAudioFileCAFType, kAudioFormatALAC, 44100, 2, 4096, 24,
         kFrames},
        {"mp3.caf", ffmpegTo("-c:a libmp3lame"), kAudioFileCAFType, kAudioFormatMPEGLayer3, 44100,
         2, 1152, 0},
        {"free.flac", ffmpegTo(""), kAudioFileFLACType, kAudioFormatFLAC, 44100, 2, 4608, 34,
         kFrames},
        {"free.ogg", ffmpegTo("-c:a flac"), kAudioFileOggType, kAudioFormatFLAC, 44100, 2, 4608, 34,
         kFrames},
        {"vorbis.ogg", ffmpegTo("-c:a libvorbis"), kAudioFileOggType, kAudioFormatVorbis, 44100, 2,
         0, 3894, kFrames},
        {"tools.opus",
         "opusenc --quiet --raw --raw-rate 44100 --comment "
         "\"x=$(head -c 90000 /dev/zero | tr '\\0' x)\" $IN $OUT",
         kAudioFileOggType, kAudioFormatOpus, 48000, 2, 960, 19},
        {"long.opus", ffmpegTo("-ar 16000 -ac 1 -c:a libopus -frame_duration 60"),
         kAudioFileOggType, kAudioFormatOpus, 48000, 1, 2880, 19},
        // ffmpeg stores the duration in MP4 in milliseconds.
        {"opus.mp4", ffmpegTo("-ar 48000 -c:a libopus"), kAudioFileMPEG4Type, kAudioFormatOpus,
         48000, 2, 960, 19, kFrames * 1000 / 44100 * 48},
        {"mp3.mp4", ffmpegTo("-ar 48000 -c:a libmp3lame"), kAudioFileMPEG4Type,
         kAudioFormatMPEGLayer3, 48000, 2, 1152, 0, kFrames * 1000 / 44100 * 48},
        {"cinema.ac3", ffmpegTo("-ar 48000"), kAudioFileAC3Type, kAudioFormatAC3, 48000, 2, 1536,
         0},
        {"phone.amr", "", kAudioFileAMRType, kAudioFormatAMR, 8000, 1, 160, 0},
    };
    return samples;
}

std::filesystem::path CompressedSampleFolder::operator[](const std::string& name) {
    const std::filesystem::path path = folder_ / name;
    if (std::filesystem::exists(path)) {
        return path;
    }
    const std::filesystem::path input = folder_ / "input.raw";
    if (!std::filesystem::exists(input)) {
        writeFile(input, testPcm(2 * kFrames));
    }
    if (name == "phone.amr") {
        writeFile(path, makeAmr());
        return path;
    }
    if (name == "aac.caf") {
        writeFile(path, makeAacInCaf(readStream((*this)["adts.aac"])));
        return path;
    }
    const auto sample =
        std::find_if(compressedSamples().begin(), compressedSamples().end(),
                     [&](const CompressedSample& candidate) { return candidate.name == name; });
    outputOf("IN='" + input.string() + "' OUT='" + path.string() + "'; " + sample->command);
    return path;
}

}  // namespace zav::test
