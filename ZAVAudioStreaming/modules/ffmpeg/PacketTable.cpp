#include "ZAVAudioStreaming/modules/ffmpeg/PacketTable.hpp"

#include <algorithm>

namespace zav::detail {
namespace {

constexpr unsigned kSizeBits = 24;
constexpr std::uint64_t kMostSize = (std::uint64_t{1} << kSizeBits) - 1;
constexpr std::uint64_t kMostOffset = (std::uint64_t{1} << (64U - kSizeBits)) - 1;

}  // namespace

bool PacketTable::add(const PacketPlace& place) {
    if (place.offset > kMostOffset || place.size > kMostSize) {
        return false;
    }
    if (places_.empty()) {
        commonFrameCount_ = place.frameCount;
    }
    if (frameCounts_.empty() && place.frameCount != commonFrameCount_) {
        frameCounts_.assign(places_.size(), commonFrameCount_);
    }
    places_.push_back(place.offset << kSizeBits | place.size);
    if (!frameCounts_.empty()) {
        frameCounts_.push_back(place.frameCount);
    }
    byteCount_ += place.size;
    frameCount_ += place.frameCount;
    largestSize_ = std::max(largestSize_, place.size);
    return true;
}

PacketPlace PacketTable::operator[](std::size_t packet) const {
    const std::uint64_t place = places_[packet];
    return {place >> kSizeBits, static_cast<std::uint32_t>(place & kMostSize),
            frameCounts_.empty() ? commonFrameCount_ : frameCounts_[packet]};
}

}  // namespace zav::detail
