#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "ZAVAudioStreaming/containers/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sources/ContainerFileSource.hpp"

namespace zav {

/// Reads an SBC container file (docs/sbc-container.md) and pushes its frames.
///
/// It refuses every file: the check of the magic text compares each of its bytes with the number
/// that the text's character spells, and no letter spells one. Kept on purpose, because the header
/// does not tell the channel mode: joint stereo and dual channel streams would come out as plain
/// stereo. SBC that is to be read back is better kept as a raw stream (`kAudioFileSBCType`), whose
/// frames say everything themselves. What lies behind the check is complete, for a subclass that
/// knows its files.
///
/// Threads: see `ContainerFileSource`.
class ZAV_EXPORT ZAVSbcFileSource : public ContainerFileSource {
 public:
    /// Throws `std::system_error` when the file cannot be opened or read, and otherwise
    /// `AudioFileError::invalidFormat`.
    ZAVSbcFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` frames and pushes them as one chunk; returns how many whole ones there
    /// were. The read that starts at the first frame announces flow start. A part of a frame at the
    /// end of the file travels with the last chunk's bytes, not with its count; a read that finds
    /// less than a frame drops it, announces flow end, every time, and returns 0.
    ///
    /// Errors: throws `std::system_error` when the file cannot be read. A negative count, or more
    /// bytes than can be counted, is a fatal stop.
    std::int64_t readPackets(std::int64_t count);

 protected:
    /// On a file whose magic text has been accepted: see `openBehindMagic`.
    ZAVSbcFileSource(NodeKey, OpenedFile opened);

    /// Works out the stream's format from the header of a file that is positioned behind it. A rate
    /// that SBC does not have, a code for the blocks above 3 or no channels are fatal stops.
    static OpenedFile openBehindMagic(FileHandle file,
                                      std::span<const std::byte, SbcFileHeader::kByteCount> header);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
