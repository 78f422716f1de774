#include "ZAVAudioStreaming/queues/PlaybackFeed.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zav::detail {

PlaybackFeed::PlaybackFeed(const AudioStreamBasicDescription& pcm, std::function<void()> wake)
    : bytesPerFrame_(pcm.mBytesPerFrame),
      wake_(std::move(wake)),
      meter_(pcm),
      first_(new Piece),
      last_(first_),
      pulled_(first_),
      marked_(first_) {}

PlaybackFeed::~PlaybackFeed() {
    clear();
    delete first_;
}

std::uint64_t PlaybackFeed::append(std::span<const std::byte> pcm) {
    const RolePlayer appender(appender_);
    const std::size_t begun = (appendedBytes_ + pcm.size()) % bytesPerFrame_;
    const std::size_t rest = std::min(begun, pcm.size());
    const auto whole = pcm.first(pcm.size() - rest);
    auto piece = std::make_unique<Piece>();
    piece->bytes = whole;
    // Allocate everything before the first change, so that a failure changes nothing.
    std::unique_ptr<Piece> begunFrame;
    if (rest > 0) {
        begunFrame = std::make_unique<Piece>();
        begunFrame->kept.assign(whole.end(), pcm.end());
        begunFrame->bytes = begunFrame->kept;
    }
    append(std::move(piece));
    if (begunFrame != nullptr) {
        append(std::move(begunFrame));
    }
    return appendedFrames();
}

std::uint64_t PlaybackFeed::append(std::vector<std::byte> pcm) {
    const RolePlayer appender(appender_);
    auto piece = std::make_unique<Piece>();
    piece->kept = std::move(pcm);
    piece->bytes = piece->kept;
    append(std::move(piece));
    return appendedFrames();
}

void PlaybackFeed::append(std::unique_ptr<Piece> piece) {
    if (piece->bytes.empty()) {
        return;
    }
    piece->startByte = appendedBytes_;
    appendedBytes_ += piece->bytes.size();
    piece->endFrame = appendedFrames();
    Piece* const previous = std::exchange(last_, piece.release());
    previous->next.store(last_, std::memory_order_release);
    publishedBytes_.store(appendedBytes_, std::memory_order_release);
}

std::uint64_t PlaybackFeed::appendedFrames() const {
    return appendedBytes_ / bytesPerFrame_;
}

void PlaybackFeed::dropPlayed() {
    const RolePlayer appender(appender_);
    const std::uint64_t playedBytes =
        playedFrames_.load(std::memory_order_acquire) * bytesPerFrame_;
    for (Piece* second = first_->next; second != nullptr && second->startByte < playedBytes;
         second = first_->next) {
        delete std::exchange(first_, second);
    }
}

void PlaybackFeed::clear() {
    const RolePlayer appender(appender_);
    while (first_ != last_) {
        delete std::exchange(first_, first_->next.load());
    }
    first_->bytes = {};
    first_->startByte = 0;
    first_->endFrame = 0;
    appendedBytes_ = 0;
    publishedBytes_ = 0;
    rewind();
}

void PlaybackFeed::rewind() {
    const RolePlayer device(device_);
    pulled_ = marked_ = first_;
    pulledInPiece_ = first_->bytes.size();
    pulledBytes_ = 0;
    playedFrames_ = 0;
    isEnding_ = false;
    isDeviceGone_ = false;
}

void PlaybackFeed::resetCounts() {
    interruptionCount_ = 0;
    meter_.clear();
}

std::size_t PlaybackFeed::pull(std::span<std::byte> room) noexcept {
    const RolePlayer device(device_);
    const std::uint64_t published = publishedBytes_.load(std::memory_order_acquire);
    const std::uint64_t wholeFrames = published - published % bytesPerFrame_;
    const std::size_t size = std::min<std::uint64_t>(room.size(), wholeFrames - pulledBytes_);
    for (std::size_t copied = 0; copied < size;) {
        if (pulledInPiece_ == pulled_->bytes.size()) {
            pulled_ = pulled_->next.load(std::memory_order_acquire);
            pulledInPiece_ = 0;
        }
        const std::size_t count = std::min(size - copied, pulled_->bytes.size() - pulledInPiece_);
        std::memcpy(room.data() + copied, pulled_->bytes.data() + pulledInPiece_, count);
        copied += count;
        pulledInPiece_ += count;
    }
    pulledBytes_ += size;
    meter_.add(room.first(size));
    return size;
}

std::uint64_t PlaybackFeed::mark() const noexcept {
    const RolePlayer device(device_);
    const std::uint64_t played = playedFrames_.load(std::memory_order_relaxed);
    const Piece* waitedFor = marked_;
    while (waitedFor->endFrame <= played) {
        waitedFor = waitedFor->next.load(std::memory_order_acquire);
        if (waitedFor == nullptr) {
            return kNoMark;
        }
    }
    return waitedFor->endFrame;
}

void PlaybackFeed::played(std::uint64_t frameCount) noexcept {
    const RolePlayer device(device_);
    const bool isMarkReached = mark() <= frameCount;
    for (Piece* next = marked_->next.load(std::memory_order_acquire);
         next != nullptr && marked_->endFrame <= frameCount;
         next = marked_->next.load(std::memory_order_acquire)) {
        marked_ = next;
    }
    // Do this last: the appender may free the played pieces from now on.
    playedFrames_.store(frameCount, std::memory_order_release);
    if (isMarkReached) {
        wake_();
    }
}

void PlaybackFeed::ranDry(std::uint64_t frameCount) noexcept {
    const RolePlayer device(device_);
    const std::uint64_t endFrame = publishedBytes_ / bytesPerFrame_;
    if (!isEnding_ || frameCount < endFrame) {
        ++interruptionCount_;
    }
}

void PlaybackFeed::deviceGone() noexcept {
    const RolePlayer device(device_);
    isDeviceGone_ = true;
    wake_();
}

}  // namespace zav::detail
