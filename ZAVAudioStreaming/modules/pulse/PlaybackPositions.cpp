#include "ZAVAudioStreaming/modules/pulse/PlaybackPositions.hpp"

namespace zav::detail {
namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1000000;

}  // namespace

std::uint64_t PlaybackPositions::duration(std::uint64_t frameCount) const {
    return frameCount * kMicrosecondsPerSecond / rate_;
}

std::uint64_t PlaybackPositions::frameCount(std::uint64_t duration) const {
    return (duration * rate_ + kMicrosecondsPerSecond / 2) / kMicrosecondsPerSecond;
}

void PlaybackPositions::addAudio(std::uint64_t frameCount) {
    written_ += frameCount;
    pulled_ += frameCount;
    isAllTaken_ = false;
}

bool PlaybackPositions::beginSilence(std::uint64_t serverPosition, std::uint64_t enough) {
    if (endsInSilence()) {
        return lastSilence_.end - lastSilence_.begin < enough;
    }
    if (silenceBefore_.end > serverPosition) {
        return false;
    }
    olderSilence_ += silenceBefore_.end - silenceBefore_.begin;
    silenceBefore_ = lastSilence_;
    lastSilence_ = {written_, written_};
    return true;
}

void PlaybackPositions::addSilence(std::uint64_t frameCount) {
    written_ += frameCount;
    lastSilence_.end = written_;
}

void PlaybackPositions::resume(std::uint64_t now) {
    silentAt_ = now + duration(pulled_ - played_);
}

void PlaybackPositions::noteTaken(std::uint64_t serverPosition, std::uint64_t now) {
    if (serverPosition >= audioEnd() && !isAllTaken_) {
        silentAt_ = now + duration(pulled_ - played_);
        isAllTaken_ = true;
    }
}

std::optional<std::uint64_t> PlaybackPositions::noteDry(std::uint64_t serverPosition) {
    const std::uint64_t frame = std::min(clientFrame(serverPosition), pulled_);
    if (dryAt_ == frame) {
        return std::nullopt;
    }
    dryAt_ = frame;
    dryWith_ = pulled_;
    return frame;
}

void PlaybackPositions::expectDryBehindSilence() {
    if (dryWith_ == pulled_) {
        dryAt_ = pulled_;
    }
}

std::uint64_t PlaybackPositions::update(std::uint64_t serverPosition, std::uint64_t now) {
    std::uint64_t sounded = 0;
    if (isAllTaken_) {
        // Use our own clock, because the server's clock may have stopped already.
        sounded = pulled_ - std::min(pulled_, frameCount(silentAt_ - std::min(silentAt_, now)));
    } else {
        sounded = std::min(clientFrame(serverPosition), limit());
    }
    played_ = std::max(played_, sounded);
    return played_;
}

std::uint64_t PlaybackPositions::clientFrame(std::uint64_t serverPosition) const {
    std::uint64_t silent = olderSilence_;
    for (const Silence& silence : {silenceBefore_, lastSilence_}) {
        silent += std::clamp(serverPosition, silence.begin, silence.end) - silence.begin;
    }
    return serverPosition - std::min(serverPosition, silent);
}

}  // namespace zav::detail
