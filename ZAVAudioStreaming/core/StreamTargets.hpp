#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// The targets of a producing node, in the order in which they were added. A target may add another
/// target while it is called. Each operation, and each range-for, reaches only the targets that
/// were in the list at its start.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT StreamTargets {
 public:
    class Iterator;

    /// Appends a target. Fatal if it is null.
    void add(std::shared_ptr<AudioStreamInputable> target);

    /// Each of these functions makes the same call on every target, one after the other.
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

/// Holds an index. So a target that is added during the loop does not invalidate the iterator.
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
