#include "VirtualDevice.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "RealTimeProbe.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::test {
namespace {

/// Steps of the clock. At every tested rate a step is a whole number of frames.
constexpr std::size_t kStepsPerSecond = 200;
/// How far a stream pulls ahead of what it plays.
constexpr std::size_t kLatencyInSteps = 20;

/// Calls a queue as the device thread does.
template <class Call>
auto onDeviceThread(Call call) {
    const RealTimeProbe probe;
    return call();
}

}  // namespace

/// The device's mutex guards all members and all calls.
class VirtualDevice::Stream {
 public:
    Stream(VirtualDevice& device, const AudioStreamBasicDescription& format)
        : device_(device),
          bytesPerStep_(static_cast<std::size_t>(format.mSampleRate) / kStepsPerSecond *
                        format.mBytesPerFrame),
          bytesPerFrame_(format.mBytesPerFrame) {}
    virtual ~Stream() = default;

    virtual void step() = 0;
    void gone() {
        if (!std::exchange(isGone_, true)) {
            onDeviceThread([this] { notifyGone(); });
        }
    }

 protected:
    virtual void notifyGone() = 0;

    VirtualDevice& device_;
    std::size_t bytesPerStep_;
    std::size_t bytesPerFrame_;
    bool isGone_ = false;
};

class VirtualDevice::Playback : public PlaybackStream, public Stream {
 public:
    Playback(VirtualDevice& device, const AudioStreamBasicDescription& format,
             PlaybackClient& client)
        : Stream(device, format), client_(client) {}
    ~Playback() override { device_.remove(*this); }

    OSStatus start() override {
        const std::lock_guard lock(device_.mutex_);
        if (isGone_) {
            return kAudioQueueErr_InvalidDevice;
        }
        pull();
        isPlaying_ = device_.startingStatus == noErr;
        return device_.startingStatus;
    }
    OSStatus pause() override {
        const std::lock_guard lock(device_.mutex_);
        isPlaying_ = false;
        return isGone_ ? kAudioQueueErr_InvalidDevice : noErr;
    }
    void audioAdded() override {
        if (device_.onAudioAdded) {
            device_.onAudioAdded();
        }
        const std::lock_guard lock(device_.mutex_);
        pull();
    }
    void drain() override {}
    std::uint64_t framesPlayed() override {
        const std::lock_guard lock(device_.mutex_);
        return played_;
    }

    void step() override {
        if (!isPlaying_ || isGone_) {
            return;
        }
        const std::size_t size = device_.isStalling ? 0 : std::min(bytesPerStep_, pulled_.size());
        const std::span sounding(pulled_.data(), size);
        if (device_.receiver) {
            device_.receiver(sounding);
        } else {
            device_.heard_.insert(device_.heard_.end(), sounding.begin(), sounding.end());
        }
        pulled_.erase(pulled_.begin(), pulled_.begin() + static_cast<std::ptrdiff_t>(size));
        played_ += size / bytesPerFrame_;
        if (size < bytesPerStep_ && !std::exchange(isDry_, true)) {
            onDeviceThread([this] { client_.ranDry(played_); });
        }
        pull();
        onDeviceThread([this] {
            if (client_.mark() <= played_) {
                client_.played(played_);
            }
        });
    }

 private:
    void notifyGone() override { client_.deviceGone(); }

    void pull() {
        const std::size_t latency = kLatencyInSteps * bytesPerStep_;
        if (isGone_ || pulled_.size() >= latency) {
            return;
        }
        const std::size_t before = pulled_.size();
        pulled_.resize(latency);
        const std::size_t size =
            onDeviceThread([&] { return client_.pull(std::span(pulled_).subspan(before)); });
        pulled_.resize(before + size);
        isDry_ = isDry_ && size == 0;
    }

    PlaybackClient& client_;
    std::vector<std::byte> pulled_;
    std::uint64_t played_ = 0;
    bool isPlaying_ = false;
    bool isDry_ = false;
};

class VirtualDevice::Capture : public CaptureStream, public Stream {
 public:
    Capture(VirtualDevice& device, const AudioStreamBasicDescription& format, CaptureClient& client)
        : Stream(device, format), client_(client) {}
    ~Capture() override { device_.remove(*this); }

    void finish() override {
        const std::lock_guard lock(device_.mutex_);
        push();
        isFinished_ = true;
    }
    void roomAdded() override {
        const std::lock_guard lock(device_.mutex_);
        push();
    }

    void step() override {
        if (isFinished_ || isGone_) {
            return;
        }
        const std::size_t before = held_.size();
        held_.resize(before + bytesPerStep_);
        if (device_.speaker) {
            device_.speaker(std::span(held_).subspan(before));
        }
        push();
    }

 private:
    void notifyGone() override { client_.deviceGone(); }

    void push() {
        if (!held_.empty() && !isFinished_) {
            const std::size_t taken = onDeviceThread([this] { return client_.push(held_); });
            held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(taken));
        }
    }

    CaptureClient& client_;
    std::vector<std::byte> held_;
    bool isFinished_ = false;
};

void VirtualDevice::advance(double seconds, const std::function<void()>& afterStep) {
    for (auto steps = std::llround(seconds * kStepsPerSecond); steps > 0; --steps) {
        {
            const std::lock_guard lock(mutex_);
            for (Stream* const stream : streams_) {
                stream->step();
            }
        }
        if (afterStep) {
            afterStep();
        }
    }
}

std::vector<std::byte> VirtualDevice::heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
}

void VirtualDevice::speakRepeatedly(std::span<const std::byte> bytes) {
    speaker = [bytes = std::vector(bytes.begin(), bytes.end()),
               position = std::size_t{0}](std::span<std::byte> captured) mutable {
        while (!captured.empty()) {
            const std::size_t size = std::min(captured.size(), bytes.size() - position);
            std::copy_n(&bytes[position], size, captured.begin());
            position = (position + size) % bytes.size();
            captured = captured.subspan(size);
        }
    };
}

void VirtualDevice::unplug() {
    const std::lock_guard lock(mutex_);
    isPluggedIn_ = false;
    for (Stream* const stream : streams_) {
        stream->gone();
    }
}

void VirtualDevice::plugIn() {
    const std::lock_guard lock(mutex_);
    isPluggedIn_ = true;
}

std::size_t VirtualDevice::openStreamCount() const {
    const std::lock_guard lock(mutex_);
    return streams_.size();
}

template <class Made, class Client, class MadeStream>
OSStatus VirtualDevice::open(const AudioStreamBasicDescription& format, Client& client,
                             std::unique_ptr<MadeStream>& stream) {
    auto made = std::make_unique<Made>(*this, format, client);
    const std::lock_guard lock(mutex_);
    const OSStatus status = isPluggedIn_ ? openingStatus : kAudioQueueErr_InvalidDevice;
    if (status == noErr) {
        streams_.push_back(made.get());
        stream = std::move(made);
    }
    return status;
}

OSStatus VirtualDevice::openPlayback(const AudioStreamBasicDescription& format,
                                     PlaybackClient& client,
                                     std::unique_ptr<PlaybackStream>& stream) {
    return open<Playback>(format, client, stream);
}

OSStatus VirtualDevice::openCapture(const AudioStreamBasicDescription& format,
                                    CaptureClient& client, std::unique_ptr<CaptureStream>& stream) {
    return open<Capture>(format, client, stream);
}

void VirtualDevice::remove(Stream& stream) {
    if (onClosing) {
        onClosing();
    }
    const std::lock_guard lock(mutex_);
    std::erase(streams_, &stream);
}

}  // namespace zav::test
