#include "tests/support/CompressedSamples.hpp"

#include <algorithm>
#include <span>

#include "tests/support/Commands.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

constexpr std::size_t kFrames = 123457;  // 2.8 s, no whole number of any codec's packets

std::string ffmpegTo(const std::string& options) {
    return "ffmpeg -nostdin -v error -y -f s16le -ar 44100 -ac 2 -i $IN " + options + " $OUT";
}

void append(std::vector<std::byte>& bytes, const std::string& text) {
    for (const char letter : text) {
        bytes.push_back(static_cast<std::byte>(letter));
    }
}

void appendBigEndian(std::vector<std::byte>& bytes, std::uint64_t value, int size) {
    while (size-- > 0) {
        bytes.push_back(static_cast<std::byte>(value >> (8 * size)));
    }
}

/// Frames of 12.2 kbit/s. No packaged program encodes AMR.
std::vector<std::byte> makeAmr() {
    constexpr std::byte kFrameHeader{0x3C};
    std::vector<std::byte> bytes;
    append(bytes, "#!AMR\n");
    for (std::uint32_t frame = 0; frame < 140; ++frame) {
        bytes.push_back(kFrameHeader);
        const auto content = testBytes(31, frame + 1);
        bytes.insert(bytes.end(), content.begin(), content.end());
    }
    return bytes;
}

/// The packets of an ADTS file in CAF, which no packaged program writes.
std::vector<std::byte> makeAacInCaf(std::span<const std::byte> adts) {
    constexpr std::size_t kHeader = 7;
    std::vector<std::byte> audio;
    std::vector<std::byte> sizes;
    std::uint64_t count = 0;
    for (std::size_t at = 0; at + kHeader <= adts.size(); ++count) {
        const auto byteAt = [&](std::size_t i) {
            return std::to_integer<std::size_t>(adts[at + i]);
        };
        const std::size_t length = (byteAt(3) & 3U) << 11U | byteAt(4) << 3U | byteAt(5) >> 5U;
        const auto packet = adts.subspan(at + kHeader, length - kHeader);
        audio.insert(audio.end(), packet.begin(), packet.end());
        appendBigEndian(sizes, 0x80U | packet.size() >> 7U, 1);
        appendBigEndian(sizes, packet.size() & 0x7FU, 1);
        at += length;
    }
    std::vector<std::byte> bytes;
    append(bytes, "caff");
    appendBigEndian(bytes, 0x00010000, 4);
    append(bytes, "desc");
    appendBigEndian(bytes, 32, 8);
    appendBigEndian(bytes, 0x40E5888000000000, 8);  // 44100
    append(bytes, "aac ");
    appendBigEndian(bytes, 0, 4);
    appendBigEndian(bytes, 0, 4);
    appendBigEndian(bytes, 1024, 4);
    appendBigEndian(bytes, 2, 4);
    appendBigEndian(bytes, 0, 4);
    append(bytes, "kuki");
    appendBigEndian(bytes, 36, 8);
    // ES descriptor, decoder configuration, AudioSpecificConfig 12 10; sizes in four bytes, as
    // libavformat insists.
    appendBigEndian(bytes, 0x0380808022, 5);
    appendBigEndian(bytes, 0, 3);
    appendBigEndian(bytes, 0x0480808014, 5);
    appendBigEndian(bytes, 0x4015, 2);
    appendBigEndian(bytes, 0, 8);
    appendBigEndian(bytes, 0, 3);
    appendBigEndian(bytes, 0x0580808002, 5);
    appendBigEndian(bytes, 0x1210, 2);
    appendBigEndian(bytes, 0x060102, 3);
    append(bytes, "pakt");
    appendBigEndian(bytes, 24 + sizes.size(), 8);
    appendBigEndian(bytes, count, 8);
    appendBigEndian(bytes, count * 1024, 8);
    appendBigEndian(bytes, 0, 8);
    bytes.insert(bytes.end(), sizes.begin(), sizes.end());
    append(bytes, "data");
    appendBigEndian(bytes, audio.size() + 4, 8);
    appendBigEndian(bytes, 0, 4);
    bytes.insert(bytes.end(), audio.begin(), audio.end());
    return bytes;
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
        // Without an edit list, so that its priming is heard.
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
        // What is heard, as ffmpeg writes it into MP4: in milliseconds.
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
        writeFile(path, makeAacInCaf(readFile((*this)["adts.aac"])));
        return path;
    }
    const auto sample =
        std::find_if(compressedSamples().begin(), compressedSamples().end(),
                     [&](const CompressedSample& candidate) { return candidate.name == name; });
    outputOf("IN='" + input.string() + "' OUT='" + path.string() + "'; " + sample->command);
    return path;
}

}  // namespace zav::test
