#include "ZAVAudioStreaming/queues/PcmConversion.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/DeviceRate.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

constexpr std::uint32_t kMostChannels = 8;
constexpr bool kIsBigEndianHere = std::endian::native == std::endian::big;

bool has(const AudioStreamBasicDescription& format, std::uint32_t flag) {
    return (format.mFormatFlags & flag) != 0;
}

std::uint32_t bytesPerSample(const AudioStreamBasicDescription& format) {
    return format.mBytesPerFrame / format.mChannelsPerFrame;
}

/// Returns true if rate, channels and sizes are possible and consistent.
bool isSound(const AudioStreamBasicDescription& format) {
    return isDeviceRate(format.mSampleRate) && format.mChannelsPerFrame >= 1 &&
           format.mChannelsPerFrame <= kMostChannels && format.mFramesPerPacket == 1 &&
           format.mBytesPerFrame > 0 && format.mBytesPerFrame % format.mChannelsPerFrame == 0 &&
           format.mBytesPerPacket == format.mBytesPerFrame &&
           (format.mChannelsPerFrame == 1 || !has(format, kAudioFormatFlagIsNonInterleaved));
}

bool isFloat(const AudioStreamBasicDescription& format, std::uint32_t bits) {
    return has(format, kAudioFormatFlagIsFloat) && format.mBitsPerChannel == bits &&
           bytesPerSample(format) * 8 == bits;
}

bool isInteger(const AudioStreamBasicDescription& format) {
    const std::uint32_t bits = format.mBitsPerChannel;
    const std::uint32_t bytes = bytesPerSample(format);
    const bool isIn32 = bits == 24 && bytes == 4;
    return !has(format, kAudioFormatFlagIsFloat) && bits >= 8 && bits <= 32 && bits % 8 == 0 &&
           (bytes * 8 == bits || isIn32);
}

bool isPcm(const AudioStreamBasicDescription& format) {
    if (!isSound(format)) {
        return false;
    }
    switch (format.mFormatID) {
        case kAudioFormatLinearPCM:
            return isInteger(format) || isFloat(format, 32) || isFloat(format, 64);
        case kAudioFormatALaw:
        case kAudioFormatULaw:
            return bytesPerSample(format) == 1;
        default:
            return false;
    }
}

/// Returns true if the two formats differ only in their sign.
bool hasOtherSign(const AudioStreamBasicDescription& format) {
    const bool isSigned = has(format, kAudioFormatFlagIsSignedInteger);
    return format.mFormatID == kAudioFormatLinearPCM && isInteger(format) &&
           isSigned == (format.mBitsPerChannel == 8);
}

/// Returns true if each sample has 24 bits and an unused byte above them.
bool isLowIn32(const AudioStreamBasicDescription& format) {
    return format.mBitsPerChannel == 24 && bytesPerSample(format) == 4 &&
           !has(format, kAudioFormatFlagIsAlignedHigh);
}

bool needsIntegerChange(const AudioStreamBasicDescription& format) {
    return hasOtherSign(format) || (format.mFormatID == kAudioFormatLinearPCM && isLowIn32(format));
}

AudioStreamBasicDescription devicePcm(AudioStreamBasicDescription format) {
    if (format.mFormatID != kAudioFormatLinearPCM) {
        return format;
    }
    if (isFloat(format, 64)) {
        format.mBitsPerChannel = 32;
    } else if (hasOtherSign(format)) {
        format.mFormatFlags ^= kAudioFormatFlagIsSignedInteger;
    }
    if (format.mBitsPerChannel == 24 && bytesPerSample(format) == 4 && !isLowIn32(format)) {
        // Use the same 32 bits with a silent lowest byte.
        format.mBitsPerChannel = 32;
    }
    format.mFormatFlags &= ~kAudioFormatFlagIsAlignedHigh;
    format.mFormatFlags |= kAudioFormatFlagIsPacked;
    format.mBytesPerFrame = format.mBitsPerChannel / 8 * format.mChannelsPerFrame;
    format.mBytesPerPacket = format.mBytesPerFrame;
    return format;
}

/// Flips sign bits, and removes or adds the byte above 24 bits.
class IntegerChange {
 public:
    explicit IntegerChange(const AudioStreamBasicDescription& stream)
        : isBigEndian_(has(stream, kAudioFormatFlagIsBigEndian)),
          isPadded_(isLowIn32(stream)),
          isSigned_(has(stream, kAudioFormatFlagIsSignedInteger)),
          changesSign_(hasOtherSign(stream)),
          streamSize_(bytesPerSample(stream)),
          deviceSize_(isPadded_ ? streamSize_ - 1 : streamSize_) {}

    void toDevice(std::span<const std::byte> samples, std::vector<std::byte>& out) const {
        const std::size_t first = isPadded_ && isBigEndian_ ? 1 : 0;
        for (; !samples.empty(); samples = samples.subspan(streamSize_)) {
            append(samples.subspan(first, deviceSize_), out);
        }
    }

    void fromDevice(std::span<const std::byte> samples, std::vector<std::byte>& out) const {
        for (; !samples.empty(); samples = samples.subspan(deviceSize_)) {
            const std::byte top = samples[isBigEndian_ ? 0 : deviceSize_ - 1];
            const bool isNegative = isSigned_ && (top & kSignBit) != std::byte{0};
            const std::byte padding = isNegative ? std::byte{0xff} : std::byte{0};
            if (isPadded_ && isBigEndian_) {
                out.push_back(padding);
            }
            append(samples.first(deviceSize_), out);
            if (isPadded_ && !isBigEndian_) {
                out.push_back(padding);
            }
        }
    }

 private:
    static constexpr std::byte kSignBit{0x80};

    void append(std::span<const std::byte> sample, std::vector<std::byte>& out) const {
        const std::size_t start = out.size();
        out.insert(out.end(), sample.begin(), sample.end());
        if (changesSign_) {
            out[isBigEndian_ ? start : out.size() - 1] ^= kSignBit;
        }
    }

    bool isBigEndian_;
    bool isPadded_;
    bool isSigned_;
    bool changesSign_;
    std::size_t streamSize_;  // size of a sample in bytes
    std::size_t deviceSize_;
};

/// Converts between the stream's 64 bits and the device's 32 bits.
class FloatChange {
 public:
    explicit FloatChange(const AudioStreamBasicDescription& stream)
        : isSwapped_(has(stream, kAudioFormatFlagIsBigEndian) != kIsBigEndianHere) {}

    void toDevice(std::span<const std::byte> samples, std::vector<std::byte>& out) const {
        convert<double, float>(samples, out);
    }
    void fromDevice(std::span<const std::byte> samples, std::vector<std::byte>& out) const {
        convert<float, double>(samples, out);
    }

 private:
    template <class From, class To>
    void convert(std::span<const std::byte> samples, std::vector<std::byte>& out) const {
        for (; !samples.empty(); samples = samples.subspan(sizeof(From))) {
            std::array<std::byte, sizeof(From)> in{};
            std::copy_n(samples.begin(), in.size(), in.begin());
            const auto converted = inOrder(std::bit_cast<std::array<std::byte, sizeof(To)>>(
                static_cast<To>(std::bit_cast<From>(inOrder(in)))));
            out.insert(out.end(), converted.begin(), converted.end());
        }
    }

    template <std::size_t size>
    std::array<std::byte, size> inOrder(std::array<std::byte, size> bytes) const {
        if (isSwapped_) {
            std::reverse(bytes.begin(), bytes.end());
        }
        return bytes;
    }

    bool isSwapped_;
};

/// A buffer may end inside a frame. The beginning of that frame is kept for the next buffer.
template <class Change>
class PcmDecoder : public QueueDecoder {
 public:
    explicit PcmDecoder(const AudioStreamBasicDescription& stream)
        : stream_(stream), change_(stream) {}

    AudioStreamBasicDescription pcmFormat() const override { return devicePcm(stream_); }
    std::uint32_t maximumPacketSize() const override { return stream_.mBytesPerPacket; }
    void setMagicCookie(std::span<const std::byte> /*cookie*/) override {
        throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }

    void decode(std::span<const std::byte> bytes,
                std::span<const AudioStreamPacketDescription> /*descriptions*/,
                std::vector<std::byte>& pcm) override {
        rest_.insert(rest_.end(), bytes.begin(), bytes.end());
        const std::size_t whole = rest_.size() - rest_.size() % stream_.mBytesPerFrame;
        change_.toDevice({rest_.data(), whole}, pcm);
        rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(whole));
    }
    void finish(std::vector<std::byte>& /*pcm*/) override {}
    void reset() override { rest_.clear(); }

 private:
    AudioStreamBasicDescription stream_;
    Change change_;
    std::vector<std::byte> rest_;
};

template <class Change>
class PcmEncoder : public QueueEncoder {
 public:
    explicit PcmEncoder(const AudioStreamBasicDescription& stream)
        : stream_(stream), change_(stream) {}

    AudioStreamBasicDescription pcmFormat() const override { return devicePcm(stream_); }
    AudioStreamBasicDescription streamFormat() const override { return stream_; }
    std::uint32_t maximumPacketSize() const override { return stream_.mBytesPerPacket; }
    std::span<const std::byte> magicCookie() const override { return {}; }
    void encode(std::span<const std::byte> pcm, EncodedPackets& packets) override {
        change_.fromDevice(pcm, packets.bytes);
    }
    void finish(EncodedPackets& /*packets*/) override {}

 private:
    AudioStreamBasicDescription stream_;
    Change change_;
};

}  // namespace

std::optional<AudioStreamBasicDescription> pcmOfDevice(const AudioStreamBasicDescription& stream) {
    return isPcm(stream) ? std::optional(devicePcm(stream)) : std::nullopt;
}

std::unique_ptr<QueueDecoder> makePcmDecoder(const AudioStreamBasicDescription& stream) {
    if (isFloat(stream, 64)) {
        return std::make_unique<PcmDecoder<FloatChange>>(stream);
    }
    return needsIntegerChange(stream) ? std::make_unique<PcmDecoder<IntegerChange>>(stream)
                                      : nullptr;
}

std::unique_ptr<QueueEncoder> makePcmEncoder(const AudioStreamBasicDescription& stream) {
    if (isFloat(stream, 64)) {
        return std::make_unique<PcmEncoder<FloatChange>>(stream);
    }
    return needsIntegerChange(stream) ? std::make_unique<PcmEncoder<IntegerChange>>(stream)
                                      : nullptr;
}

}  // namespace zav::detail
