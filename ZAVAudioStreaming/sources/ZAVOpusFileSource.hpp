#pragma once

#include <cstdint>
#include <filesystem>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sources/ContainerFileSource.hpp"

namespace zav {

/// Reads an Opus container file (docs/opus-container.md) and pushes its packets.
///
/// Threads: see `ContainerFileSource`.
class ZAV_EXPORT ZAVOpusFileSource : public ContainerFileSource {
 public:
    /// Throws `std::system_error` if the file cannot be opened or read, and
    /// `AudioFileError::invalidFormat` if it does not start with the header of an Opus container.
    /// The header's rate and channels are not checked.
    ZAVOpusFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` packets and pushes them as one chunk with a description for each. Calls
    /// flow start first if the next packet is the first one of the file. Calls flow end after the
    /// chunk if the file had at least one packet left, but fewer than `count`.
    ///
    /// Errors: throws `AudioFileError::noMoreData` if no packet is left, and does not call flow
    /// end. A file ends this way if its number of packets is a multiple of `count`. Throws
    /// `std::system_error` if the file cannot be read. Nothing was pushed then. Fatal if a packet
    /// is cut off ("Reading the packet length field from opus file failed"), for any value of its
    /// length field. Fatal for a negative count. A cut-off record header at the end of the file is
    /// ignored.
    void readPackets(std::int64_t count);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
