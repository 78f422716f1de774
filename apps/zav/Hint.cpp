#include "Hint.hpp"

#include <string_view>

namespace zavtool {
namespace {

/// The name as a shell takes it.
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

std::string hintAtVerb(const char* verb, const std::filesystem::path& input,
                       const std::string& output) {
    return hint(verb, std::string("zav ") + verb + " " + quoted(input.string()) + " " + output);
}

bool isSbcOrOpus(const zav::AudioStreamBasicDescription& format) {
    return format.mFormatID == zav::kAudioFormatSbc || format.mFormatID == zav::kAudioFormatOpus;
}

}  // namespace

std::string soxHint(const std::filesystem::path& input, const std::string& arguments) {
    return hint("convert", "sox " + quoted(input.string()) + " " + arguments);
}

std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output) {
    return hintAtVerb("copy", input, quoted(output.string()));
}

std::string hintAtOtherVerb(const zav::AudioStreamBasicDescription& format, const FileType& type,
                            const std::filesystem::path& input,
                            const std::filesystem::path& output) {
    if (format.mFormatID == zav::kAudioFormatLinearPCM && (holdsSbc(type) || holdsOpus(type))) {
        return hintAtVerb("encode", input, quoted(output.string()));
    }
    if (isSbcOrOpus(format) && type.holdsPcm) {
        return hintAtVerb("decode", input, quoted(output.string()));
    }
    return "";
}

std::string headHint(const std::filesystem::path& input, std::uint64_t size) {
    return " (to keep what is whole: head -c " + std::to_string(size) + " " +
           quoted(input.string()) + " > whole" + input.extension().string() + ")";
}

std::string to16BitPcmHint(const zav::AudioStreamBasicDescription& format,
                           const std::filesystem::path& input) {
    switch (format.mFormatID) {
        case zav::kAudioFormatLinearPCM:
        case zav::kAudioFormatALaw:
        case zav::kAudioFormatULaw:
            return soxHint(input, "-e signed-integer -b 16 converted.wav");
        case zav::kAudioFormatSbc:
        case zav::kAudioFormatOpus:
            return hintAtVerb("decode", input, "decoded.wav");
        default:
            return hint("convert",
                        "ffmpeg -i " + quoted(input.string()) + " -c:a pcm_s16le converted.wav");
    }
}

}  // namespace zavtool
