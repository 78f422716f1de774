#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <filesystem>
#include <string>

#include "FileType.hpp"

/// Makes the end of a refusal, in brackets. The hint names a command that makes an acceptable file.
namespace zavtool {

/// " (to copy: zav copy INPUT OUTPUT)"
std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output);
/// The command that extracts the raw SBC frames from an SBC container. If the library's decoder
/// does not take the frames, a second command follows, which converts the frames to PCM.
std::string rawSbcHint(const std::filesystem::path& container, bool isDecodable);
/// A command of ffmpeg that decodes a file of SBC frames.
std::string decodeElsewhereHint(const std::filesystem::path& input);
/// The command that makes a file of this type, for audio that must be encoded or decoded first.
/// Empty if no such command exists.
std::string hintAtOtherVerb(const zav::AudioStreamBasicDescription& format, const FileType& type,
                            const std::filesystem::path& input,
                            const std::filesystem::path& output);
/// " (to keep what is whole: head -c SIZE INPUT > whole.EXTENSION)"
std::string headHint(const std::filesystem::path& input, std::uint64_t size);
/// Values that a conversion to 16-bit PCM must also change. 0 keeps the value of the input.
struct Conversion {
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
};
/// One command of sox, ffmpeg or zav that converts audio in this format to 16-bit PCM. The
/// command's output never has the input's name.
std::string to16BitPcmHint(const zav::AudioStreamBasicDescription& format,
                           const std::filesystem::path& input, const Conversion& conversion = {});

}  // namespace zavtool
