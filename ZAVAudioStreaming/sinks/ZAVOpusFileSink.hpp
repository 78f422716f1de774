#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sinks/ContainerFileSink.hpp"

namespace zav {

/// Writes an Opus stream into an Opus container file (docs/opus-container.md), one record a packet.
/// Each record is two writes and nothing is held back: what was received is in the file.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ZAVOpusFileSink : public ContainerFileSink {
 public:
    /// Throws `AudioStreamError::unacceptableData`, before it touches the file, unless the upstream
    /// is Opus with one or two channels at 8000, 16000, 32000, 44100 or 48000 Hz. The list is not
    /// the encoder's on purpose: 12000 and 24000 Hz are refused. Throws `AudioFileError::create`
    /// when the file cannot be made.
    ZAVOpusFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                    std::filesystem::path fileUrl);

    /// Writes `packetNum` records. Without descriptions the chunk is cut into as many equal
    /// packets, and the remainder is dropped.
    ///
    /// Precondition: every description lies within `size` bytes.
    ///
    /// Errors: fatal stops for a chunk outside a flow, a failed write ("Writting to opus file
    /// failed: " and the system's words), a packet of 4 GiB and more, a `packetNum` of 2^63 and
    /// more.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    static const std::shared_ptr<AudioStreamOutputable>& requireOpus(
        const std::shared_ptr<AudioStreamOutputable>& upstream);

    void writeFileMeta() override;
    void writeRecord(const std::byte* packet, std::uint32_t packetLength);
};

}  // namespace zav
