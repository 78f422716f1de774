#pragma once

#include <memory>

#include "ZAVAudioStreaming/platform/linux/AudioDevice.hpp"

namespace zav::test {

/// What code on the device thread must not do, counted while a probe is on the calling thread.
/// Counted are the calls that this program and the library in it make, by linking them to
/// counters: the linker's option --wrap, see tests/CMakeLists.txt.
class RealTimeProbe {
 public:
    RealTimeProbe();
    ~RealTimeProbe();

    RealTimeProbe(const RealTimeProbe&) = delete;
    RealTimeProbe& operator=(const RealTimeProbe&) = delete;

    /// Since `reset`, on all threads.
    static int probedCallCount();
    static int allocationCount();
    static int lockCount();
    static void reset();
};

/// Hands another device's calls on to the queue, each under a probe.
class ProbedDevice : public AudioDevice {
 public:
    /// Takes the place of `device` for as long as it lives.
    explicit ProbedDevice(AudioDevice& device) : device_(device) { setAudioDevice(this); }
    ~ProbedDevice() override { setAudioDevice(nullptr); }

    OSStatus openPlayback(const AudioStreamBasicDescription& format, PlaybackClient& client,
                          std::unique_ptr<PlaybackStream>& stream) override;
    OSStatus openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                         std::unique_ptr<CaptureStream>& stream) override;

 private:
    AudioDevice& device_;
};

}  // namespace zav::test
