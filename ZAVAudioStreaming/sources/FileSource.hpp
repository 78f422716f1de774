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

/// Reads any audio file that the file service can open and pushes its packets, undecoded. The
/// application pulls: it calls `readPackets` until that returns 0.
///
/// Threads: the application's, one at a time; targets are called on it.
class ZAV_EXPORT FileSource : public AudioStreamOutputable {
 public:
    /// Throws `AudioFileError::open` with the service's status when the file cannot be opened.
    FileSource(NodeKey, const std::filesystem::path& fileURL);

    /// The file's own format, asked for at every call.
    AudioStreamBasicDescription outDataFormat() const override;
    /// Bytes that no packet of the file exceeds.
    std::uint32_t packetSizeUpperBound() const;
    /// Share of the file's packets read so far, 0 to 1. Not finite for a file without packets.
    float progress() const;

    /// Reads up to `count` packets and pushes them as one chunk; returns how many there were. The
    /// first call also announces flow start, as does every call until a packet was read. A call
    /// that finds no packet, or asks for none, announces flow end, every time: stop at the first 0,
    /// because a `FileSink` in the graph ends the process at a second flow end.
    ///
    /// No packet descriptions are passed on, also where packets vary in size: read one packet at a
    /// time when the targets have to tell them apart.
    ///
    /// Errors: throws `AudioFileError::read` with the service's status; nothing was pushed, and the
    /// next call tries the same packets again. A negative count, or a chunk of 4 GiB and more
    /// (count x packetSizeUpperBound), is a fatal stop.
    std::int64_t readPackets(std::int64_t count);

    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    struct Close {
        void operator()(AudioFileID file) const;
    };

    StreamTargets downstreams_;  // released after the file is closed, so it comes first
    std::unique_ptr<std::remove_pointer_t<AudioFileID>, Close> fileID_;
    std::int64_t curPacketIdx_ = 0;
};

}  // namespace zav
