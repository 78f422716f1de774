#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// The targets of a producing node, in the order in which they were added, and the walk over them.
/// A walk, also a range-for, covers the targets that the list held when it began: a target may add
/// another one while it is being called.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT StreamTargets {
 public:
    class Iterator;

    /// Appends a target. Null is a fatal stop.
    void add(std::shared_ptr<AudioStreamInputable> target);

    /// Each makes the same call on every target, finishing one before it starts the next.
    void onAudioStreamFlowStart() const;
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) const;
    void onAudioStreamFlowEnd() const;

    std::size_t size() const noexcept { return targets_.size(); }
    bool empty() const noexcept { return targets_.empty(); }
    std::shared_ptr<AudioStreamInputable> operator[](std::size_t index) const {
        return targets_[index];
    }

    Iterator begin() const noexcept;
    Iterator end() const noexcept;

 private:
    template <class Call>
    void forEachTarget(Call call) const;

    std::vector<std::shared_ptr<AudioStreamInputable>> targets_;
};

/// Goes by index, so that targets added during a walk do not invalidate it.
class StreamTargets::Iterator {
 public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::shared_ptr<AudioStreamInputable>;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = value_type;

    Iterator(const StreamTargets& targets, std::size_t index) : targets_(&targets), index_(index) {}

    value_type operator*() const { return (*targets_)[index_]; }
    Iterator& operator++() {
        ++index_;
        return *this;
    }
    Iterator operator++(int) { return {*targets_, index_++}; }

    friend bool operator==(const Iterator& left, const Iterator& right) {
        return left.index_ == right.index_;
    }

 private:
    const StreamTargets* targets_;
    std::size_t index_;
};

inline StreamTargets::Iterator StreamTargets::begin() const noexcept {
    return {*this, 0};
}

inline StreamTargets::Iterator StreamTargets::end() const noexcept {
    return {*this, targets_.size()};
}

}  // namespace zav
