#pragma once

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav {

/// First parameter of every node's constructor. Only `makeNode` can make a key. So `makeNode` makes
/// every node and registers every consuming node with its upstream. A derived class inherits the
/// constructors with `using PeripheralSink::PeripheralSink;`.
class NodeKey {
    NodeKey() = default;

    template <class Node>
    static void finish(const std::shared_ptr<Node>& node) {
        if constexpr (requires(NodeKey key) { node->onMade(key, node); }) {
            node->onMade(NodeKey(), node);
        }
    }

    template <std::derived_from<AudioStreamInputable> Node, class... Arguments>
    friend std::shared_ptr<Node> makeNode(std::shared_ptr<AudioStreamOutputable> upstream,
                                          Arguments&&... arguments);
    template <std::derived_from<AudioStreamOutputable> Node, class... Arguments>
    requires(!std::derived_from<Node, AudioStreamInputable>) friend std::shared_ptr<Node> makeNode(
        Arguments&&... arguments);
};

/// Makes a consuming node and registers it with `upstream`:
/// `makeNode<SBCEncoder>(source, configuration)`.
///
/// The node's constructor checks the upstream. If it throws, nothing is registered. `makeNode` adds
/// the node to the upstream's targets after all its constructors, including those of derived
/// classes, have returned. The upstream holds the node strongly, and the node holds the upstream
/// weakly. Fatal if `upstream` is null.
///
/// Some nodes need a step after their constructor. They may hand out a weak reference to
/// themselves, or do work that can fail only after they are registered. Such a node declares this
/// public function:
///
///     void onMade(NodeKey, std::weak_ptr<ItsClass> self);
///
/// `makeNode` calls `onMade` last. `onMade` may throw. A consuming node then stays registered, and
/// its upstream keeps it alive. From then on, the node must do nothing.
template <std::derived_from<AudioStreamInputable> Node, class... Arguments>
std::shared_ptr<Node> makeNode(std::shared_ptr<AudioStreamOutputable> upstream,
                               Arguments&&... arguments) {
    static_assert(
        std::is_constructible_v<Node, NodeKey, std::shared_ptr<AudioStreamOutputable>&,
                                Arguments...>,
        "A node's constructor takes a NodeKey, its upstream and the arguments of makeNode; a class "
        "derived from a node inherits it with 'using Base::Base;'. An abstract class misses an "
        "override.");
    if (upstream == nullptr) {
        fatalError(FatalCause::misuse, "A node needs an upstream");
    }
    auto node = std::make_shared<Node>(NodeKey(), upstream, std::forward<Arguments>(arguments)...);
    upstream->addStreamTarget(node);
    NodeKey::finish(node);
    return node;
}

/// Makes a source, which has no upstream: `makeNode<FileSource>("speech.wav")`. Calls `onMade` as
/// for a consuming node.
template <std::derived_from<AudioStreamOutputable> Node, class... Arguments>
requires(!std::derived_from<Node, AudioStreamInputable>) std::shared_ptr<Node> makeNode(
    Arguments&&... arguments) {
    static_assert(std::is_constructible_v<Node, NodeKey, Arguments...>,
                  "A source's constructor takes a NodeKey and the arguments of makeNode.");
    auto node = std::make_shared<Node>(NodeKey(), std::forward<Arguments>(arguments)...);
    NodeKey::finish(node);
    return node;
}

}  // namespace zav
