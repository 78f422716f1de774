#pragma once

#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "Container.hpp"
#include "Input.hpp"

namespace zavtool {

/// One of the library's decoders on a file, with what has to be done to its PCM.
struct Decoding {
    std::shared_ptr<zav::AudioStreamOutputable> pcm;
    std::string inWords;  ///< for --verbose
};

/// For SBC frames, also those of the library's container. Throws `Failure`, which names `path`, for
/// frames that the decoder does not take.
Decoding makeSbcDecoder(const Input& input, const std::filesystem::path& path, bool isBigEndian);

/// Whether the library's decoder takes the frames of this container.
bool isDecodable(const SbcContainer& container);

/// For Opus packets. Applies the pre-skip, the length and the gain of the file's header. Throws
/// `Failure`, which names `path`.
Decoding makeOpusDecoder(const Input& input, const std::filesystem::path& path);

}  // namespace zavtool
