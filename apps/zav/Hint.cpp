#include "Hint.hpp"

#include <string_view>

namespace zavtool {
namespace {

/// The name, quoted for a shell where necessary.
std::string quoted(const std::string& name) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/-+,";
    if (!name.starts_with('-') && name.find_first_not_of(kPlain) == std::string::npos) {
        return name;
    }
    std::string text = name.starts_with('-') ? "'./" : "'";
    for (const char letter : name) {
        text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return text + "'";
}

std::string hint(const char* purpose, const std::string& command) {
    return std::string(" (to ") + purpose + ": " + command + ")";
}

std::string commandOf(const char* verb, const std::filesystem::path& input,
                      const std::string& output) {
    return std::string("zav ") + verb + " " + quoted(input.string()) + " " + output;
}

std::string hintAtVerb(const char* verb, const std::filesystem::path& input,
                       const std::string& output) {
    return hint(verb, commandOf(verb, input, output));
}

/// Returns a name other than the input's name. A command that writes to its input empties the input
/// before reading it.
std::string outputName(const std::filesystem::path& input, const std::string& stem,
                       const std::string& extension) {
    const std::string name = stem + extension;
    return input.filename() == name ? stem + "2" + extension : name;
}

std::string decodeElsewhere(const std::filesystem::path& input) {
    return "ffmpeg -i " + quoted(input.string()) + " -c:a pcm_s16le converted.wav";
}

bool isSbcOrOpus(const zav::AudioStreamBasicDescription& format) {
    return format.mFormatID == zav::kAudioFormatSbc || format.mFormatID == zav::kAudioFormatOpus;
}

}  // namespace

std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output) {
    return hintAtVerb("copy", input, quoted(output.string()));
}

std::string rawSbcHint(const std::filesystem::path& container, bool isDecodable) {
    const auto raw = container.filename().replace_extension(".sbc");
    return isDecodable ? copyHint(container, raw)
                       : hint("convert", commandOf("copy", container, quoted(raw.string())) +
                                             " && " + decodeElsewhere(raw));
}

std::string decodeElsewhereHint(const std::filesystem::path& input) {
    return hint("convert", decodeElsewhere(input));
}

std::string hintAtOtherVerb(const zav::AudioStreamBasicDescription& format, const FileType& type,
                            const std::filesystem::path& input,
                            const std::filesystem::path& output) {
    if (format.mFormatID == zav::kAudioFormatLinearPCM && (holdsSbc(type) || holdsOpus(type))) {
        return hintAtVerb("encode", input, quoted(output.string()));
    }
    if (isSbcOrOpus(format) && holdsPcm(type)) {
        return hintAtVerb("decode", input, quoted(output.string()));
    }
    return "";
}

std::string headHint(const std::filesystem::path& input, std::uint64_t size) {
    return " (to keep what is whole: head -c " + std::to_string(size) + " " +
           quoted(input.string()) + " > " + outputName(input, "whole", input.extension().string()) +
           ")";
}

std::string to16BitPcmHint(const zav::AudioStreamBasicDescription& format,
                           const std::filesystem::path& input, const Conversion& conversion) {
    if (isSbcOrOpus(format)) {
        return hintAtVerb("decode", input, "decoded.wav");
    }
    const bool isPcm = format.mFormatID == zav::kAudioFormatLinearPCM;
    const bool isForSox = isPcm || format.mFormatID == zav::kAudioFormatALaw ||
                          format.mFormatID == zav::kAudioFormatULaw;
    constexpr std::uint32_t kOtherSamples =
        zav::kAudioFormatFlagIsFloat | zav::kAudioFormatFlagIsBigEndian;
    const bool isWanted =
        isPcm && format.mBitsPerChannel == 16 && (format.mFormatFlags & kOtherSamples) == 0;
    std::string command = (isForSox ? "sox " : "ffmpeg -i ") + quoted(input.string());
    if (!isWanted) {
        command += isForSox ? " -e signed-integer -b 16" : " -c:a pcm_s16le";
    }
    if (conversion.channels != 0) {
        command += (isForSox ? " -c " : " -ac ") + std::to_string(conversion.channels);
    }
    if (conversion.rate != 0) {
        command += (isForSox ? " -r " : " -ar ") + std::to_string(conversion.rate);
    }
    return hint("convert", command + " " + outputName(input, "converted", ".wav"));
}

}  // namespace zavtool
