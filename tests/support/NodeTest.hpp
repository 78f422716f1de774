#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/ExpectThrown.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {

/// A source, and short names for pushing through it.
class PushingTest : public testing::Test {
 protected:
    void start() { source_->downstreams().onAudioStreamFlowStart(); }
    void push(std::span<const std::byte> bytes, std::uint64_t packetNum = 12345,
              const AudioStreamPacketDescription* descriptions = nullptr) {
        source_->downstreams().receiveAudio(bytes.data(), bytes.size(), packetNum, descriptions);
    }
    void end() { source_->downstreams().onAudioStreamFlowEnd(); }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

/// A node on that source, and a sink that keeps the node's output.
template <class Node>
class NodeTest : public PushingTest {
 protected:
    /// Makes all three again.
    template <class... Arguments>
    void make(const AudioStreamBasicDescription& format, Arguments&&... arguments) {
        source_ = makeNode<PeripheralSource>();
        source_->setOutDataFormat(format);
        node_ = makeNode<Node>(source_, std::forward<Arguments>(arguments)...);
        sink_ = makeNode<RecordingSink>(node_);
    }

    void pushInChunks(std::span<const std::byte> bytes, std::size_t chunkSize) {
        for (; !bytes.empty(); bytes = bytes.subspan(std::min(chunkSize, bytes.size()))) {
            push(bytes.first(std::min(chunkSize, bytes.size())));
        }
    }

    /// Number of saved bytes of an encoder.
    std::size_t savedSize() const {
        return node_->partialFrameBytes() ? node_->partialFrameBytes()->size() : 0;
    }

    std::shared_ptr<Node> node_;
    std::shared_ptr<RecordingSink> sink_;
};

/// Expects that a node of this kind refuses each of these formats, and an all-zero one.
template <class Node, class... Arguments>
void expectRefused(std::vector<AudioStreamBasicDescription> formats,
                   const Arguments&... arguments) {
    formats.emplace_back();
    const auto source = makeNode<PeripheralSource>();
    for (std::size_t i = 0; i < formats.size(); ++i) {
        source->setOutDataFormat(formats[i]);
        EXPECT_THROW(makeNode<Node>(source, arguments...), AudioStreamError) << "format " << i;
    }
    EXPECT_TRUE(source->downstreams().empty());
}

}  // namespace zav::test
