#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sinks/ContainerFileSink.hpp"

namespace zav {

/// Writes an Opus stream into an Opus container file (docs/opus-container.md), one record for each
/// packet. The sink writes a record with two writes. It holds nothing back: every received packet
/// is in the file.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ZAVOpusFileSink : public ContainerFileSink {
 public:
    /// Throws `AudioStreamError::unacceptableData` unless the upstream is Opus with one or two
    /// channels at 8000, 16000, 32000, 44100 or 48000 Hz. The file is not touched then. These rates
    /// differ from the encoder's rates on purpose: 12000 and 24000 Hz are refused. Throws
    /// `AudioFileError::create` if the file cannot be created.
    ZAVOpusFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                    std::filesystem::path fileUrl);

    /// Writes `packetNum` records. Without descriptions, the sink cuts the chunk into `packetNum`
    /// equal packets and drops the remainder.
    ///
    /// Precondition: every description lies within `size` bytes.
    ///
    /// Errors: fatal for a chunk outside a flow, a failed write ("Writting to opus file failed: "
    /// and the system's error text), a packet of 4 GiB or more, or a `packetNum` of 2^63 or more.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    static const std::shared_ptr<AudioStreamOutputable>& requireOpus(
        const std::shared_ptr<AudioStreamOutputable>& upstream);

    void writeFileMeta() override;
    void writeRecord(const std::byte* packet, std::uint32_t packetLength);
};

}  // namespace zav
