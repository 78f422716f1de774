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
    /// `AudioFileError::invalidFormat` if it has no header of an Opus container. The header's rate
    /// and channels are not checked.
    ZAVOpusFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` packets and pushes them as one chunk with a description for each. Calls
    /// flow start first if it starts at the first packet. Calls flow end after the chunk if the
    /// file has some packets left, but fewer than `count`.
    ///
    /// Errors: throws `AudioFileError::noMoreData` if no packet is left, and does not call flow
    /// end. A file whose number of packets is a multiple of `count` ends this way. Throws
    /// `std::system_error` if the file cannot be read; nothing was pushed then. Fatal for a packet
    /// that is cut off, whatever its length field says ("Reading the packet length field from opus
    /// file failed"), and for a negative count. A last record header that is cut off is ignored.
    void readPackets(std::int64_t count);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
