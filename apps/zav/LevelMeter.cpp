#include "LevelMeter.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace zavtool {
namespace {

constexpr double kBlocksPerSecond = 10;

/// What a meter shows as silence.
constexpr double kLowestInDecibels = -60;

double decibels(double level) {
    return level > 0 ? std::max(20 * std::log10(level), kLowestInDecibels) : kLowestInDecibels;
}

std::string decibelText(const char* form, double level) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), form, decibels(level));
    return text.data();
}

std::string clipText(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " clip" : " clips");
}

template <class Float>
double floatAt(const std::array<std::byte, 8>& littleEndian) {
    Float value = 0;
    std::memcpy(&value, littleEndian.data(), sizeof value);
    return static_cast<double>(value);
}

}  // namespace

LevelMeter::LevelMeter(zav::NodeKey key,
                       const std::shared_ptr<zav::AudioStreamOutputable>& upstream)
    : PeripheralSink(key, upstream),
      format_(inDataFormat()),
      bytesPerSample_(format_.mBytesPerFrame / format_.mChannelsPerFrame),
      framesPerBlock_(
          static_cast<std::uint64_t>(std::max(1.0, format_.mSampleRate / kBlocksPerSecond))) {}

bool LevelMeter::measures(const zav::AudioStreamBasicDescription& format) {
    return format.mFormatID == zav::kAudioFormatLinearPCM && format.mChannelsPerFrame > 0 &&
           format.mBytesPerFrame >= format.mChannelsPerFrame;
}

void LevelMeter::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t /*packetNum*/,
                              const zav::AudioStreamPacketDescription* /*descriptions*/) {
    const auto* frame = static_cast<const std::byte*>(bytes);
    const std::lock_guard lock(mutex_);
    for (std::uint64_t left = size / format_.mBytesPerFrame; left > 0; --left) {
        if (frameCount_ % framesPerBlock_ == 0) {
            blocks_.emplace_back();
        }
        Block& block = blocks_.back();
        for (std::uint32_t channel = 0; channel < format_.mChannelsPerFrame; ++channel) {
            measure(frame + std::size_t{channel} * bytesPerSample_, block);
        }
        frame += format_.mBytesPerFrame;
        block.endFrame = ++frameCount_;
    }
}

void LevelMeter::measure(const std::byte* sample, Block& block) const {
    const bool isBigEndian = (format_.mFormatFlags & zav::kAudioFormatFlagIsBigEndian) != 0;
    if ((format_.mFormatFlags & zav::kAudioFormatFlagIsFloat) != 0) {
        std::array<std::byte, 8> bytes{};
        std::copy_n(sample, bytesPerSample_, bytes.begin());
        if (isBigEndian) {
            std::reverse(bytes.begin(), bytes.begin() + bytesPerSample_);
        }
        const double value = std::abs(bytesPerSample_ == sizeof(double) ? floatAt<double>(bytes)
                                                                        : floatAt<float>(bytes));
        block.peak = std::max(block.peak, value);
        block.clipCount += value >= 1 ? 1 : 0;
        return;
    }
    // Put at the high end of 32 bits, so that full scale is the same for all.
    std::uint32_t bits = 0;
    std::uint32_t ownBits = 0;
    for (std::uint32_t i = 0; i < bytesPerSample_; ++i) {
        const std::uint32_t place = isBigEndian ? i : bytesPerSample_ - 1 - i;
        bits |= std::to_integer<std::uint32_t>(sample[place]) << (24 - 8 * i);
        ownBits |= 0xFFU << (24 - 8 * i);
    }
    if ((format_.mFormatFlags & zav::kAudioFormatFlagIsSignedInteger) == 0) {
        bits ^= 0x80000000U;
    }
    const std::uint32_t highest = ownBits & 0x7FFFFFFFU;
    const auto value = static_cast<std::int32_t>(bits);
    block.peak = std::max(block.peak, std::abs(static_cast<double>(value)) / 0x80000000U);
    block.clipCount += bits == highest || bits == 0x80000000U ? 1 : 0;
}

Levels LevelMeter::levelsAt(double seconds) {
    const std::lock_guard lock(mutex_);
    while (!blocks_.empty() &&
           static_cast<double>(blocks_.front().endFrame) <= seconds * format_.mSampleRate) {
        const Block& block = blocks_.front();
        levels_.now = block.peak;
        levels_.peak = std::max(levels_.peak, block.peak);
        levels_.clipCount += block.clipCount;
        // The one that is being filled starts anew at a whole block, or not at all.
        if (block.endFrame == frameCount_ && frameCount_ % framesPerBlock_ != 0) {
            blocks_.front() = {frameCount_, 0, 0};
            break;
        }
        blocks_.pop_front();
    }
    return levels_;
}

std::vector<std::string> levelFields(const Levels& levels) {
    constexpr int kBarWidth = 10;
    const auto filled = static_cast<std::size_t>(
        std::lround(kBarWidth * (1 - decibels(levels.now) / kLowestInDecibels)));
    const std::size_t shown = std::min<std::size_t>(filled, kBarWidth);
    return {"[" + std::string(shown, '#') + std::string(kBarWidth - shown, '-') + "]",
            decibelText("%3.0f dB", levels.now), decibelText("peak %.0f dB", levels.peak),
            clipText(levels.clipCount)};
}

std::string levelSummary(const Levels& levels) {
    return decibelText(", peak %.1f dB, ", levels.peak) + clipText(levels.clipCount);
}

}  // namespace zavtool
