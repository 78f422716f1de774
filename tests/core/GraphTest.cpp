// Linking and fan-out: the rules of every node.

#include <stdexcept>

#include "tests/support/NodeTest.hpp"

namespace zav::test {
namespace {

TEST(FanOut, callsEveryTargetInTheOrderOfAdding) {
    const auto source = makeNode<PeripheralSource>();
    const auto first = makeNode<RecordingSink>(source);
    const auto second = makeNode<RecordingSink>(source);
    source->addStreamTarget(first);
    Calls order;
    first->onCall = [&](const std::string& call) { order.push_back("first " + call); };
    second->onCall = [&](const std::string& call) { order.push_back("second " + call); };

    const AudioStreamPacketDescription description{0, 0, 3};
    source->downstreams().onAudioStreamFlowStart();
    source->downstreams().receiveAudio("abc", 3, 1, &description);
    source->downstreams().onAudioStreamFlowEnd();

    EXPECT_EQ(order,
              (Calls{"first start", "second start", "first start", "first audio", "second audio",
                     "first audio", "first end", "second end", "first end"}));
    ASSERT_EQ(second->chunks.size(), 1U);
    EXPECT_EQ(second->chunks[0].bytes, (Bytes{std::byte{'a'}, std::byte{'b'}, std::byte{'c'}}));
    EXPECT_EQ(second->chunks[0].packetNum, 1U);
    EXPECT_TRUE(second->chunks[0].hasDescriptions);
}

TEST(FanOut, aTargetAddedDuringAWalkIsCalledOnlyInTheNextOne) {
    const auto source = makeNode<PeripheralSource>();
    source->downstreams().onAudioStreamFlowStart();  // without targets
    const auto adder = makeNode<RecordingSink>(source);
    std::shared_ptr<RecordingSink> added;
    adder->onCall = [&](const std::string&) {
        // Many, so that the list moves its memory.
        for (int i = 0; i < 100; ++i) {
            added = makeNode<RecordingSink>(source);
        }
    };
    source->downstreams().onAudioStreamFlowStart();
    EXPECT_TRUE(added->calls.empty());
    // An application's own loop keeps the same rule.
    int called = 0;
    for (const auto& target : source->downstreams()) {
        target->onAudioStreamFlowEnd();
        ++called;
    }
    EXPECT_EQ(called, 101);
    EXPECT_EQ(source->downstreams().size(), 201U);
}

TEST(Linking, theUpstreamHoldsItsTargets) {
    auto source = makeNode<PeripheralSource>();
    const std::weak_ptr<PeripheralSource> sourceWatch = source;
    const std::weak_ptr<RecordingSink> sinkWatch = makeNode<RecordingSink>(source);
    EXPECT_FALSE(sinkWatch.expired());
    const auto sink = sinkWatch.lock();
    source.reset();
    EXPECT_TRUE(sourceWatch.expired());
    EXPECT_DEATH(sink->inDataFormat(), "Fatal error: The upstream node is gone.*UpstreamLink.cpp");
}

TEST(Linking, aConstructorThatThrowsHasRegisteredNothing) {
    // The constructor of the base class has returned when this one throws.
    class Picky : public RecordingSink {
     public:
        Picky(NodeKey key, const std::shared_ptr<AudioStreamOutputable>& upstream)
            : RecordingSink(key, upstream) {
            throw std::invalid_argument("no");
        }
    };
    const auto source = makeNode<PeripheralSource>();
    EXPECT_THROW(makeNode<Picky>(source), std::invalid_argument);
    EXPECT_TRUE(source->downstreams().empty());
}

TEST(Linking, nullIsRefusedAtOnce) {
    EXPECT_DEATH(makeNode<PeripheralSink>(nullptr), "Fatal error: A node needs an upstream");
    const auto source = makeNode<PeripheralSource>();
    EXPECT_DEATH(source->addStreamTarget(nullptr), "Fatal error: A stream target must not be null");
}

// Nodes are made by makeNode alone.
static_assert(!std::is_default_constructible_v<NodeKey>);

}  // namespace
}  // namespace zav::test
