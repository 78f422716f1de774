#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <filesystem>
#include <string>

#include "FileType.hpp"

/// The end of a refusal, in brackets: a command that makes a file which would be accepted.
namespace zavtool {

/// " (to copy: zav copy INPUT OUTPUT)"
std::string copyHint(const std::filesystem::path& input, const std::filesystem::path& output);
/// The command that makes raw SBC frames of an SBC container. If the library's decoder does not
/// take the frames, one that makes PCM of them as well.
std::string rawSbcHint(const std::filesystem::path& container, bool isDecodable);
/// A command of ffmpeg that decodes a file of SBC frames.
std::string decodeElsewhereHint(const std::filesystem::path& input);
/// The command that makes a file of this type, for audio that has to be encoded or decoded first.
/// Empty if there is none.
std::string hintAtOtherVerb(const zav::AudioStreamBasicDescription& format, const FileType& type,
                            const std::filesystem::path& input,
                            const std::filesystem::path& output);
/// " (to keep what is whole: head -c SIZE INPUT > whole.EXTENSION)"
std::string headHint(const std::filesystem::path& input, std::uint64_t size);
/// What a conversion to 16-bit PCM also has to change. 0 leaves it.
struct Conversion {
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
};
/// One command of sox, ffmpeg or zav that makes 16-bit PCM of audio in this format. Its output
/// never has the input's name.
std::string to16BitPcmHint(const zav::AudioStreamBasicDescription& format,
                           const std::filesystem::path& input, const Conversion& conversion = {});

}  // namespace zavtool
