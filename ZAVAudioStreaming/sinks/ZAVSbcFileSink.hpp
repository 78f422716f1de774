#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sinks/ContainerFileSink.hpp"

namespace zav {

/// Writes an SBC stream into an SBC container file (docs/sbc-container.md). The received bytes
/// follow the header unchanged. The sink holds nothing back: every received byte is in the file.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ZAVSbcFileSink : public ContainerFileSink {
 public:
    /// Throws `AudioStreamError::unacceptableData` unless the upstream is SBC at one of its four
    /// rates, with one or two channels and an `mBitsPerChannel` of 16. The file is not touched
    /// then. An `SBCEncoder` reports an `mBitsPerChannel` of 0, so it cannot feed this sink
    /// directly. Pass its bytes through a `PeripheralSource` whose format has 16. Throws
    /// `AudioFileError::create` if the file cannot be created.
    ZAVSbcFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                   std::filesystem::path fileUrl);

    /// Appends `size` bytes; `packetNum` and `packetDescriptions` are ignored. Fatal for a chunk
    /// outside a flow, a failed write ("Writing sbc data to file failed: " and the system's error
    /// text), or a `size` of 2^63 or more.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    static const std::shared_ptr<AudioStreamOutputable>& requireSbc(
        const std::shared_ptr<AudioStreamOutputable>& upstream);

    void writeFileMeta() override;
};

}  // namespace zav
