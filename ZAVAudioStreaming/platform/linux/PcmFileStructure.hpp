#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav {

/// What a look at a file's chunks tells before libsndfile sees it.
struct PcmFileStructure {
    AudioFileTypeID fileType = 0;
    std::uint64_t cookieOffset = 0;
    std::uint32_t cookieSize = 0;
    /// Offsets of the four-byte ids of chunks that matter to nobody here (texts, cue points, ...).
    std::vector<std::uint64_t> ignoredChunks;
};

/// Examines the beginning and the chunks of a file of one of libsndfile's types. Empty when it is
/// of another type. Throws 'dta?' when the chunks are not what the type prescribes: libsndfile
/// 1.2 can hang or overflow on such files.
std::optional<PcmFileStructure> examinePcmFile(const FileHandle& file);

}  // namespace zav
