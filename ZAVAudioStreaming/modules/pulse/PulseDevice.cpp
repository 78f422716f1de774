#include "ZAVAudioStreaming/modules/pulse/PulseDevice.hpp"

#include <utility>

#include "ZAVAudioStreaming/modules/pulse/PulseCapture.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulsePlayback.hpp"

namespace zav::detail {
namespace {

template <typename PulseStreamOf, typename Client, typename Stream>
OSStatus openStream(const AudioStreamBasicDescription& format, Client& client,
                    std::unique_ptr<Stream>& stream) {
    auto opened = std::make_unique<PulseStreamOf>(client);
    const OSStatus status = opened->open(format);
    if (status == noErr) {
        stream = std::move(opened);
    }
    return status;
}

}  // namespace

OSStatus PulseDevice::openPlayback(const AudioStreamBasicDescription& format,
                                   PlaybackClient& client,
                                   std::unique_ptr<PlaybackStream>& stream) {
    return openStream<PulsePlayback>(format, client, stream);
}

OSStatus PulseDevice::openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                                  std::unique_ptr<CaptureStream>& stream) {
    return openStream<PulseCapture>(format, client, stream);
}

}  // namespace zav::detail
