#pragma once

#include <ZAVAudioStreaming/core/PeripheralSink.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zavtool {

/// Options of every verb.
struct CommonOptions {
    bool isQuiet = false;
    bool isVerbose = false;
};

/// The files of a verb that makes one file from another.
struct FilePair {
    std::filesystem::path input;
    std::filesystem::path output;
};

struct CloseAudioFile {
    void operator()(zav::AudioFileID file) const;
};
using OpenAudioFile = std::unique_ptr<std::remove_pointer_t<zav::AudioFileID>, CloseAudioFile>;

/// Opens an audio file to read its properties. Throws `Failure` with the reason.
OpenAudioFile openAudioFile(const std::filesystem::path& path);

/// The first packet of an audio file. Empty if the file has no packets. Throws `Failure`, which
/// names `path`.
std::vector<std::byte> firstPacket(const OpenAudioFile& file, const std::filesystem::path& path);

/// The magic cookie of an audio file, if it has one. Throws `Failure`, which names `path`.
std::optional<std::vector<std::byte>> magicCookie(const OpenAudioFile& file,
                                                  const std::filesystem::path& path);

/// Counts the bytes and packets that a node pushes. Any thread may read the counts.
class StreamCounter : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override;

    std::uint64_t byteCount() const { return byteCount_; }
    std::uint64_t packetCount() const { return packetCount_; }

 private:
    std::atomic<std::uint64_t> byteCount_ = 0;
    std::atomic<std::uint64_t> packetCount_ = 0;
};

/// Passes a stream on to a `PeripheralSource`. That source can declare another format for the
/// stream, as an application declares the format of bytes from its peripheral.
class Relay : public zav::PeripheralSink {
 public:
    Relay(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
          std::shared_ptr<zav::PeripheralSource> next)
        : PeripheralSink(key, upstream), next_(std::move(next)) {}

    void onAudioStreamFlowStart() override { next_->downstreams().onAudioStreamFlowStart(); }
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override {
        next_->downstreams().receiveAudio(bytes, size, packetNum, packetDescriptions);
    }
    void onAudioStreamFlowEnd() override { next_->downstreams().onAudioStreamFlowEnd(); }

 private:
    std::shared_ptr<zav::PeripheralSource> next_;
};

/// Returns the upstream's stream with `format` as the declared format.
std::shared_ptr<zav::AudioStreamOutputable> redeclared(
    const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
    const zav::AudioStreamBasicDescription& format);

/// With --verbose, shows the graph of a run on standard error.
void showGraph(const CommonOptions& options, const std::string& graph);

}  // namespace zavtool
