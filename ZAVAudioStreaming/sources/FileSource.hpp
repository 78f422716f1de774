#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <type_traits>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav {

/// Reads any audio file that the file service can open, and pushes its packets without decoding
/// them. The application calls `readPackets` until it returns 0.
///
/// Threads: the application's threads, one at a time. Targets are called on the same thread.
class ZAV_EXPORT FileSource : public AudioStreamOutputable {
 public:
    /// Throws `AudioFileError::open` with the service's status if the file cannot be opened.
    FileSource(NodeKey, const std::filesystem::path& fileURL);

    /// The file's own format. Every call reads it again.
    AudioStreamBasicDescription outDataFormat() const override;
    /// Upper bound for the size of the file's packets, in bytes.
    std::uint32_t packetSizeUpperBound() const;
    /// Fraction of the file's packets read so far, 0 to 1. Not finite for a file without packets.
    float progress() const;

    /// Reads up to `count` packets, pushes them as one chunk and returns their number. Calls flow
    /// start first, unless an earlier call has read a packet. Calls flow end each time no packet is
    /// left or `count` is 0. Stop when the return value is 0 for the first time, because a second
    /// flow end is fatal for a `FileSink` in the graph.
    ///
    /// The chunk has no packet descriptions, even if packets vary in size. Read one packet at a
    /// time if the targets need to know where each packet ends.
    ///
    /// Errors: throws `AudioFileError::read` with the service's status. Nothing was pushed then,
    /// and the next call reads the same packets again. Fatal for a negative count or a chunk of 4
    /// GiB or more (count x packetSizeUpperBound).
    std::int64_t readPackets(std::int64_t count);

    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    struct Close {
        void operator()(AudioFileID file) const;
    };

    StreamTargets downstreams_;  // first: the file is closed before the targets are released
    std::unique_ptr<std::remove_pointer_t<AudioFileID>, Close> fileID_;
    std::int64_t curPacketIdx_ = 0;
};

}  // namespace zav
