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
    /// Throws `std::system_error` when the file cannot be opened or read, and
    /// `AudioFileError::invalidFormat` when its header is not there or not an Opus container's. The
    /// header's rate and channels are taken as they are.
    ZAVOpusFileSource(NodeKey, const std::filesystem::path& fileURL);

    /// Reads up to `count` packets and pushes them as one chunk with a description for each. The
    /// read that starts at the first packet announces flow start. One that comes back with fewer
    /// packets than asked for, but some, announces flow end after them.
    ///
    /// Errors: throws `AudioFileError::noMoreData` when no packet is left, without a flow end: a
    /// file whose packets are a multiple of `count` ends so, and only so. Throws
    /// `std::system_error` when the file cannot be read; nothing was pushed. Fatal stops: "Reading
    /// the packet length field from opus file failed" for a packet that is cut off, however long
    /// it claims to be; a negative count. Less than a record's length at the end is ignored.
    void readPackets(std::int64_t count);

 private:
    static OpenedFile open(const std::filesystem::path& fileURL);
};

}  // namespace zav
