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

std::string hint(const std::string& command) {
    return " (to convert: " + command + ")";
}

}  // namespace

std::string soxHint(const std::filesystem::path& input, const std::string& arguments) {
    return hint("sox " + quoted(input.string()) + " " + arguments);
}

std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output) {
    return hint("zav copy " + quoted(input.string()) + " " + quoted(output.string()));
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
            return hint("zav decode " + quoted(input.string()) + " converted.wav");
        default:
            return hint("ffmpeg -i " + quoted(input.string()) + " -c:a pcm_s16le converted.wav");
    }
}

}  // namespace zavtool
