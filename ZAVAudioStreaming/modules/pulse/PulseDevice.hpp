#pragma once

#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// The sound server's default devices, or the devices that the user's settings name.
class PulseDevice final : public QueueDevice {
 public:
    OSStatus openPlayback(const AudioStreamBasicDescription& format, PlaybackClient& client,
                          std::unique_ptr<PlaybackStream>& stream) override;
    OSStatus openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                         std::unique_ptr<CaptureStream>& stream) override;
};

}  // namespace zav::detail
