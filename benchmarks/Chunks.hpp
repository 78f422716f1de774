#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"

/// Input of the nodes and of the plain loops beside them.
namespace zav::benchmarks {

/// Bytes in chunks of one size. Bytes that do not fill the last chunk are left out.
class EqualChunks {
 public:
    EqualChunks(std::span<const std::byte> bytes, std::size_t chunkSize)
        : bytes_(bytes), chunkSize_(chunkSize) {}

    std::size_t size() const { return bytes_.size() / chunkSize_; }
    std::size_t chunkSize() const { return chunkSize_; }
    std::span<const std::byte> operator[](std::size_t index) const {
        return bytes_.subspan(index * chunkSize_, chunkSize_);
    }

 private:
    std::span<const std::byte> bytes_;
    std::size_t chunkSize_;
};

using Packets = std::vector<std::vector<std::byte>>;

/// One or more packets, back to back, with a description for each.
struct PacketChunk {
    std::vector<std::byte> bytes;
    std::vector<AudioStreamPacketDescription> descriptions;

    std::span<const std::byte> packet(const AudioStreamPacketDescription& description) const {
        return std::span(bytes).subspan(static_cast<std::size_t>(description.mStartOffset),
                                        description.mDataByteSize);
    }
};

/// Chunks of `packetsPerChunk` packets. Packets that do not fill the last chunk are left out.
inline std::vector<PacketChunk> chunksOf(const Packets& packets, std::size_t packetsPerChunk) {
    std::vector<PacketChunk> chunks(packets.size() / packetsPerChunk);
    for (std::size_t i = 0; i < chunks.size() * packetsPerChunk; ++i) {
        PacketChunk& chunk = chunks[i / packetsPerChunk];
        chunk.descriptions.push_back({static_cast<std::int64_t>(chunk.bytes.size()), 0,
                                      static_cast<std::uint32_t>(packets[i].size())});
        chunk.bytes.insert(chunk.bytes.end(), packets[i].begin(), packets[i].end());
    }
    return chunks;
}

/// Pushes a chunk. A single packet has no description, because `OpusEncoder` also passes on a
/// single packet without a description.
inline void push(const PeripheralSource& source, const PacketChunk& chunk) {
    const std::size_t count = chunk.descriptions.size();
    source.downstreams().receiveAudio(chunk.bytes.data(), chunk.bytes.size(), count,
                                      count == 1 ? nullptr : chunk.descriptions.data());
}

}  // namespace zav::benchmarks
