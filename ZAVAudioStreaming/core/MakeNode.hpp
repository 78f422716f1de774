#pragma once

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav {

/// First parameter of every node's constructor. Only `makeNode` can make one, so that no node is
/// built without being linked; a derived class inherits the constructors with
/// `using PeripheralSink::PeripheralSink;`.
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

/// Makes a consuming node on `upstream` and registers it there:
/// `makeNode<SBCEncoder>(source, configuration)`.
///
/// The node's constructor checks and may throw; nothing is registered then. Only when the most
/// derived object is complete is it added to the upstream's targets. The upstream holds the node
/// strongly, the node holds the upstream weakly. A null upstream is a fatal stop.
///
/// A node whose making does not end with its constructor, because it hands out a weak reference to
/// itself or has to be registered before something can fail, declares a public
///
///     void onMade(NodeKey, std::weak_ptr<ItsClass> self);
///
/// `makeNode` calls it last. It may throw; a consuming node then stays registered, and its upstream
/// keeps it alive: it has to do nothing from then on.
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

/// Makes a source, which has no upstream: `makeNode<FileSource>("speech.wav")`. `onMade` is called
/// as for a consuming node.
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
