#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// A byte that libsndfile's parser reads in place of the file's own.
struct ByteEdit {
    std::uint64_t offset;  ///< in the file
    std::byte value;
};

/// The chunks of a file, found before libsndfile opens it.
struct PcmFileStructure {
    AudioFileTypeID fileType = 0;
    /// Bytes of audio, from the size of the data chunk. Empty if that size is unknown or exceeds
    /// the file.
    std::optional<std::uint64_t> audioSize;
    /// True for a CAF file of compressed audio, which libsndfile does not read as packets.
    bool isCompressed = false;
    std::uint64_t cookieOffset = 0;  ///< in the file
    std::uint32_t cookieSize = 0;    ///< bytes; 0 without a cookie
    /// These edits turn chunks that reading does not need (texts, cue points, ...) into filler.
    /// They also change a format chunk that libsndfile misreads, so that libsndfile reads it
    /// correctly.
    std::vector<ByteEdit> edits;
};

/// Examines the chunks of a file. Empty if libsndfile does not read the file's type. Throws 'dta?'
/// if the chunks break the rules of their type: libsndfile 1.2 can hang or overflow on such files.
/// Throws 'fmt?' if the sample rate is not a whole number.
std::optional<PcmFileStructure> examinePcmFile(const FileHandle& file);

}  // namespace zav::detail
