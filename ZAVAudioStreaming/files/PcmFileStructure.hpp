#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// A byte of the file that libsndfile's parser is to see in place of the real one.
struct ByteEdit {
    std::uint64_t offset;
    std::byte value;
};

/// What a look at a file's chunks tells before libsndfile sees it.
struct PcmFileStructure {
    AudioFileTypeID fileType = 0;
    /// Bytes of audio by the data chunk's own word, when it has one and the file holds as much.
    std::optional<std::uint64_t> audioSize;
    /// A CAF file with packets that libsndfile does not hand out.
    bool isCompressed = false;
    std::uint64_t cookieOffset = 0;
    std::uint32_t cookieSize = 0;
    /// Chunks that matter to nobody here (texts, cue points, ...) become filler, and a format chunk
    /// that libsndfile misreads becomes one that it knows.
    std::vector<ByteEdit> edits;
};

/// Examines the beginning and the chunks of a file of one of libsndfile's types. Empty when it is
/// of another type. Throws 'dta?' when the chunks are not what the type prescribes: libsndfile
/// 1.2 can hang or overflow on such files.
std::optional<PcmFileStructure> examinePcmFile(const FileHandle& file);

}  // namespace zav::detail
