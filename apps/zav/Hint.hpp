#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <filesystem>
#include <string>

#include "FileType.hpp"

/// What stands at the end of a refusal, in brackets: the command that makes a file which is taken.
namespace zavtool {

/// " (to copy: zav copy INPUT OUTPUT)"
std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output);
/// The verb that makes such a file of audio that it cannot hold as it is: encode, decode or none.
std::string hintAtOtherVerb(const zav::AudioStreamBasicDescription& format, const FileType& type,
                            const std::filesystem::path& input,
                            const std::filesystem::path& output);
/// " (to keep what is whole: head -c SIZE INPUT > whole.EXTENSION)"
std::string headHint(const std::filesystem::path& input, std::uint64_t size);
/// What a conversion to 16-bit PCM has to change besides; 0: nothing.
struct Conversion {
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
};
/// What makes 16-bit PCM of audio in this format, all in one: sox, ffmpeg or zav itself. Never with
/// the input's own name for its output.
std::string to16BitPcmHint(const zav::AudioStreamBasicDescription& format,
                           const std::filesystem::path& input, const Conversion& conversion = {});

}  // namespace zavtool
