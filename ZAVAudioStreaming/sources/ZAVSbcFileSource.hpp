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
/// The source refuses every file. Its check reads each character of the magic text as a decimal
/// digit and compares the file's byte with that number. The text has no digits, so the check always
/// fails. This is on purpose: the header does not contain the channel mode, so the source would
/// report joint stereo and dual channel as plain stereo. To read SBC back, keep it as a raw stream
/// (`kAudioFileSBCType`). The frames of a raw stream contain all parameters. The rest of the node
/// works, for a subclass that knows its files.
///
/// Threads: see `ContainerFileSource`.
class ZAV_EXPORT ZAVSbcFileSource : public ContainerFileSource {
 public:
    /// Always throws: `std::system_error` if the file cannot be opened or read, otherwise
    /// `AudioFileError::invalidFormat`.
    ZAVSbcFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` frames, pushes them as one chunk and returns the number of whole frames.
    /// Calls flow start first if the next frame is the first one of the file. If the file ends with
    /// a part of a frame, the last chunk contains these bytes but the returned number does not
    /// count them. If less than one frame is left, every call drops the rest, calls flow end and
    /// returns 0.
    ///
    /// Errors: throws `std::system_error` if the file cannot be read. Fatal for a negative count or
    /// if the number of bytes does not fit 64 bits.
    std::int64_t readPackets(std::int64_t count);

 protected:
    /// For a file with an accepted magic text: see `openBehindMagic`.
    ZAVSbcFileSource(NodeKey, OpenedFile opened);

    /// Makes the stream's format from `header`. The position of `file` must be the end of the
    /// header. Fatal for a rate that SBC does not have, a block code above 3, or no channels.
    static OpenedFile openBehindMagic(FileHandle file,
                                      std::span<const std::byte, SbcFileHeader::kByteCount> header);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
