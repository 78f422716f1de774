#pragma once

#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ProgressLine.hpp"

namespace zavtool {

/// A file, of whatever type, as the head of a graph.
class Input {
 public:
    Input() = default;
    virtual ~Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    /// The source node, for the next node to be made on.
    virtual std::shared_ptr<zav::AudioStreamOutputable> node() const = 0;
    /// The source node's name, for --verbose.
    virtual std::string nodeName() const = 0;
    /// Seconds of audio in the file.
    virtual double durationInSeconds() const = 0;
    virtual std::optional<std::vector<std::byte>> magicCookie() const { return std::nullopt; }

    /// Bytes that no packet exceeds.
    virtual std::uint32_t packetSizeUpperBound() const = 0;
    /// Whether packets that are pushed together can be told apart.
    virtual bool describesPackets() const = 0;
    /// Pushes up to `count` packets; false when the flow has ended. Throws `Failure`.
    virtual bool pushPackets(std::int64_t count) = 0;
    /// Share of the file that has been pushed, 0 to 1.
    virtual double progress() const = 0;

    zav::AudioStreamBasicDescription format() const { return node()->outDataFormat(); }
};

/// Opens a file by its contents. Throws `Failure` with the reason.
std::unique_ptr<Input> openInput(const std::filesystem::path& path);

/// Pulls the whole file through the graph behind it. The chunks are whole multiples of
/// `packetsPerUnit` packets, about 256 KiB each; packets that could not be told apart come one by
/// one. Throws `Failure` when reading fails.
void pump(Input& input, std::uint32_t packetsPerUnit, ProgressLine& progress);

}  // namespace zavtool
