#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sinks/ContainerFileSink.hpp"

namespace zav {

/// Writes an SBC stream into an SBC container file (docs/sbc-container.md): what it receives, byte
/// for byte, behind the header. Nothing is held back: what was received is in the file.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ZAVSbcFileSink : public ContainerFileSink {
 public:
    /// Throws `AudioStreamError::unacceptableData`, before it touches the file, unless the upstream
    /// is SBC at one of its four rates, with one or two channels, described with 16 bits per
    /// channel. An `SBCEncoder` describes its frames with 0 bits, so it cannot feed this sink
    /// itself: its bytes go through a `PeripheralSource` that declares them again. Throws
    /// `AudioFileError::create` when the file cannot be made.
    ZAVSbcFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                   std::filesystem::path fileUrl);

    /// Appends `size` bytes; `packetNum` and `packetDescriptions` are ignored. Fatal stops for a
    /// chunk outside a flow, a failed write ("Writing sbc data to file failed: " and the system's
    /// words), a size of 2^63 and more.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    static const std::shared_ptr<AudioStreamOutputable>& requireSbc(
        const std::shared_ptr<AudioStreamOutputable>& upstream);

    void writeFileMeta() override;
};

}  // namespace zav
