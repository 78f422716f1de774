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
/// It refuses every file. The check of the magic text reads each character of the text as a decimal
/// digit and compares the file's byte with that number, but the text has no digits. This is on
/// purpose: the header does not hold the channel mode, so joint stereo and dual channel would be
/// announced as plain stereo. To read SBC back, keep it as a raw stream (`kAudioFileSBCType`),
/// whose frames hold all parameters. The rest of the node works, for a subclass whose files are
/// known.
///
/// Threads: see `ContainerFileSource`.
class ZAV_EXPORT ZAVSbcFileSource : public ContainerFileSource {
 public:
    /// Always throws: `std::system_error` if the file cannot be opened or read, otherwise
    /// `AudioFileError::invalidFormat`.
    ZAVSbcFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` frames, pushes them as one chunk and returns the number of whole frames.
    /// Calls flow start first if it starts at the first frame. If the file ends with a part of a
    /// frame, these bytes are in the last chunk but are not counted. Calls flow end and returns 0
    /// every time less than one frame is left; such a rest is dropped.
    ///
    /// Errors: throws `std::system_error` if the file cannot be read. Fatal for a negative count or
    /// if the number of bytes does not fit 64 bits.
    std::int64_t readPackets(std::int64_t count);

 protected:
    /// Takes a file whose magic text has been accepted: see `openBehindMagic`.
    ZAVSbcFileSource(NodeKey, OpenedFile opened);

    /// Makes the stream's format from `header`. The position of `file` must be the end of the
    /// header. Fatal for a rate that SBC does not have, a block code above 3, or no channels.
    static OpenedFile openBehindMagic(FileHandle file,
                                      std::span<const std::byte, SbcFileHeader::kByteCount> header);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
