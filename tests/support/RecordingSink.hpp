#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {

using Calls = std::vector<std::string>;

/// Keeps everything that it receives.
class RecordingSink : public PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    struct Chunk {
        Bytes bytes;
        std::uint64_t packetNum;
        bool hasDescriptions;
        std::vector<AudioStreamPacketDescription> descriptions;
        const void* address;  ///< of the bytes during the call
    };

    void onAudioStreamFlowStart() override { note("start"); }
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override {
        const auto* const first = static_cast<const std::byte*>(bytes);
        chunks.push_back(
            {Bytes(first, first + size), packetNum, packetDescriptions != nullptr, {}, bytes});
        if (packetDescriptions != nullptr) {
            chunks.back().descriptions.assign(packetDescriptions, packetDescriptions + packetNum);
        }
        note("audio");
    }
    void onAudioStreamFlowEnd() override { note("end"); }

    Bytes allBytes() const {
        Bytes all;
        for (const Chunk& chunk : chunks) {
            all.insert(all.end(), chunk.bytes.begin(), chunk.bytes.end());
        }
        return all;
    }

    /// `packetNum` of each chunk.
    std::vector<std::uint64_t> packetCounts() const {
        std::vector<std::uint64_t> counts;
        for (const Chunk& chunk : chunks) {
            counts.push_back(chunk.packetNum);
        }
        return counts;
    }

    std::vector<std::string> calls;
    std::vector<Chunk> chunks;
    std::function<void(const std::string&)> onCall;

 private:
    void note(const std::string& call) {
        calls.push_back(call);
        if (onCall) {
            onCall(call);
        }
    }
};

}  // namespace zav::test
