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

/// A device whose clock a test moves by hand: nothing sounds and nothing is captured but in
/// `advance`, on the thread that calls it, which plays the device thread's part. It hears what is
/// played and speaks into what is captured. Its calls of queues are under a `RealTimeProbe`.
class VirtualDevice : public QueueDevice {
 public:
    VirtualDevice() { setQueueDevice(this); }
    ~VirtualDevice() override { setQueueDevice(nullptr); }

    /// Moves the clock, in steps of some milliseconds. `afterStep` runs between them.
    void advance(double seconds, const std::function<void()>& afterStep = {});

    /// What has been played, one stream after the other.
    std::vector<std::byte> heard() const;

    /// All streams are gone, and none can be opened until `plugIn`.
    void unplug();
    void plugIn();
    std::size_t openStreamCount() const;

    // These are set while no time passes and nothing is opened or closed.
    /// Gets what is played, which `heard` does not tell then.
    std::function<void(std::span<const std::byte>)> receiver;
    /// Fills in what is captured; silence without it.
    std::function<void(std::span<std::byte>)> speaker;
    /// Called when a stream closes, before it is gone: devices can take their time for it.
    std::function<void()> onClosing;
    /// Other than 0: how openings, or starts, fail.
    OSStatus openingStatus = noErr;
    OSStatus startingStatus = noErr;
    /// While it stalls it has nothing ready to be played, as on a machine that is too busy.
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
