#pragma once

#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "Input.hpp"

namespace zavtool {

/// A decoder of the library's own on a file, and behind it what has to be done to its PCM.
struct Decoding {
    std::shared_ptr<zav::AudioStreamOutputable> pcm;
    std::string inWords;  ///< for --verbose
};

/// For SBC frames, also those of the library's container. Throws `Failure`, naming `path`, for
/// frames that the decoder does not take.
Decoding makeSbcDecoder(const Input& input, const std::filesystem::path& path, bool isBigEndian);

/// For Opus packets; does what the header of the file demands. Throws `Failure`, naming `path`.
Decoding makeOpusDecoder(const Input& input, const std::filesystem::path& path);

}  // namespace zavtool
