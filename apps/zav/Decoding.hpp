#pragma once

#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "Container.hpp"
#include "Input.hpp"

namespace zavtool {

/// One of the library's decoders on a file, with the nodes that correct its PCM.
struct Decoding {
    std::shared_ptr<zav::AudioStreamOutputable> pcm;
    std::string inWords;  ///< for --verbose
};

/// Makes the decoder for SBC frames, raw or in the library's container. Throws `Failure`, which
/// names `path`, if the decoder does not take the frames.
Decoding makeSbcDecoder(const Input& input, const std::filesystem::path& path, bool isBigEndian);

/// Whether the library's decoder takes the frames of this container.
bool isDecodable(const SbcContainer& container);

/// Makes the decoder for Opus packets. Applies the pre-skip, the length and the gain of the file's
/// header. Throws `Failure`, which names `path`, if the decoder does not take the format.
Decoding makeOpusDecoder(const Input& input, const std::filesystem::path& path);

}  // namespace zavtool
