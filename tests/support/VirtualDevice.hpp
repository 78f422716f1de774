#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::test {

using namespace detail;

/// A device whose clock a test moves by hand. Audio is played and captured only in `advance`, on
/// the thread that calls it, which acts as the device thread. The device records what is played
/// (`heard`) and generates what is captured (`speaker`). A `RealTimeProbe` watches its calls of
/// queues.
class VirtualDevice : public QueueDevice {
 public:
    VirtualDevice() { setQueueDevice(this); }
    ~VirtualDevice() override { setQueueDevice(nullptr); }

    /// Moves the clock in steps of 5 ms. Calls `afterStep` after each of them.
    void advance(double seconds, const std::function<void()>& afterStep = {});

    /// What has been played, one stream after the other.
    std::vector<std::byte> heard() const;

    /// Takes all streams away. None can be opened until `plugIn`.
    void unplug();
    void plugIn();
    std::size_t openStreamCount() const;

    // Set these only while no time passes and no stream is opened or closed.
    /// Receives what is played. `heard` stays empty if this is set.
    std::function<void(std::span<const std::byte>)> receiver;
    /// Fills in what is captured. Silence is captured if this is not set.
    std::function<void(std::span<std::byte>)> speaker;
    /// Sets a `speaker` that repeats these bytes.
    void speakRepeatedly(std::span<const std::byte> bytes);
    /// Called when a stream closes, before it is removed: closing a device takes time.
    std::function<void()> onClosing;
    /// Called when a queue announces more audio.
    std::function<void()> onAudioAdded;
    /// What openings and starts return. A start that fails has pulled audio already.
    OSStatus openingStatus = noErr;
    OSStatus startingStatus = noErr;
    /// A device that stalls plays nothing, as if the machine were too busy.
    bool isStalling = false;

    OSStatus openPlayback(const AudioStreamBasicDescription& format, PlaybackClient& client,
                          std::unique_ptr<PlaybackStream>& stream) override;
    OSStatus openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                         std::unique_ptr<CaptureStream>& stream) override;

 private:
    class Stream;
    class Playback;
    class Capture;

    template <class Made, class Client, class MadeStream>
    OSStatus open(const AudioStreamBasicDescription& format, Client& client,
                  std::unique_ptr<MadeStream>& stream);
    void remove(Stream& stream);

    mutable std::mutex mutex_;
    std::vector<Stream*> streams_;
    std::vector<std::byte> heard_;
    bool isPluggedIn_ = true;
};

}  // namespace zav::test
