#pragma once

#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Failure.hpp"
#include "ProgressLine.hpp"
#include "Stream.hpp"

namespace zavtool {

/// A file of any type as the source of a graph.
class Input {
 public:
    Input() = default;
    virtual ~Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    /// The source node, on which the next node is made.
    virtual std::shared_ptr<zav::AudioStreamOutputable> node() const = 0;
    /// The source node's name, for --verbose.
    virtual std::string nodeName() const = 0;
    /// Seconds of audio in the file.
    virtual double durationInSeconds() const = 0;
    virtual std::optional<std::vector<std::byte>> magicCookie() const { return std::nullopt; }

    /// The largest size of a packet, in bytes.
    virtual std::uint32_t packetSizeUpperBound() const = 0;
    /// Whether a receiver can separate packets that are pushed together.
    virtual bool describesPackets() const = 0;
    /// Pushes up to `count` packets. Returns false if the flow has ended. Throws `Failure`.
    virtual bool pushPackets(std::int64_t count) = 0;
    /// The share of the file that has been pushed, 0 to 1.
    virtual double progress() const = 0;

    zav::AudioStreamBasicDescription format() const { return node()->outDataFormat(); }
};

/// The failure for raw SBC frames with other bytes after or between the frames. Names the place of
/// the other bytes, and a command that keeps the frames before that place.
Failure sbcDamage(const std::filesystem::path& path, const OpenAudioFile& sbc);

/// Opens a file; its contents decide the type. Throws `Failure` with the reason.
std::unique_ptr<Input> openInput(const std::filesystem::path& path);

/// Pushes the whole file through its graph. Chunks are multiples of `packetsPerUnit` packets, about
/// 256 KiB each. Packets that a receiver cannot separate come one by one. Throws `Failure` if
/// reading fails.
void pump(Input& input, std::uint32_t packetsPerUnit, ProgressLine& progress);

}  // namespace zavtool
