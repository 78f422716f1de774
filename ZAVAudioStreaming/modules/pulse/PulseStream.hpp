#pragma once

#include <pulse/pulseaudio.h>

#include <cstdint>
#include <functional>
#include <optional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseFormat.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseTimer.hpp"

namespace zav::detail {

/// The common part of playing and capturing. It is a stream on its own connection, opened within
/// three seconds. A watchdog checks its server. A live server sends messages all the time: captured
/// audio, or answers to libpulse's timing requests. After two seconds without a message, the
/// watchdog asks the server for its timing. After two more seconds, the server counts as gone.
///
/// Threads: call `open` without the lock of the loop, and all other functions with it. A derived
/// class must call `close` in its destructor.
class PulseStream {
 public:
    PulseStream(const PulseStream&) = delete;
    PulseStream& operator=(const PulseStream&) = delete;

 protected:
    PulseStream() = default;
    const PulseLoop& loop() const ZAV_RETURN_CAPABILITY(connection_.loop()) {
        return connection_.loop();
    }

    virtual ~PulseStream() = default;

    /// Statuses: those of `QueueDevice`.
    OSStatus open(const PulseFormat& format, pa_stream_direction_t direction,
                  pa_stream_flags_t moreFlags) ZAV_EXCLUDES(loop());

    /// No callback comes after this.
    void close() ZAV_REQUIRES(loop());

    /// Called when the stream is open. The derived class sets its callbacks here.
    virtual void opened() ZAV_REQUIRES(loop()) = 0;

    /// Called when the server has sent a message. Everything that libpulse reports may have
    /// changed.
    virtual void heard() noexcept ZAV_REQUIRES(loop()) = 0;

    /// Called once, when the server or the device is gone. No other function is called after it.
    virtual void lost() noexcept ZAV_REQUIRES(loop()) = 0;

    /// The derived class calls this for each message of the server. This calls `heard`.
    void noteSignOfLife() ZAV_REQUIRES(loop());

    /// Call inside a callback of libpulse. libpulse holds the lock there.
    void assertLocked() const ZAV_ASSERT_CAPABILITY(loop()) {}
    PulseConnection& connection() { return connection_; }
    pa_stream* stream() const ZAV_REQUIRES(loop()) { return stream_.get(); }
    bool isLost() const ZAV_REQUIRES(loop()) { return isLost_; }
    const PulseFormat& format() const { return format_; }
    std::size_t frameBytes() const { return frameBytes_; }

    /// Does the same as `PulseConnection::waitUntil`.
    bool waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet) ZAV_REQUIRES(loop()) {
        return connection_.waitUntil(deadline, isMet);
    }
    void cork(bool isCorked) ZAV_REQUIRES(loop());
    /// Asks the server for its timing. The answer is a sign of life.
    void askForTiming() ZAV_REQUIRES(loop());

 private:
    static void onState(pa_stream* stream, void* self) noexcept;
    static void onMessage(pa_stream* stream, void* self) noexcept;
    void watch() ZAV_REQUIRES(loop());
    void lose() ZAV_REQUIRES(loop());

    PulseConnection connection_;
    PulseStreamObject stream_ ZAV_GUARDED_BY(loop());
    std::optional<PulseTimer> watchdog_ ZAV_GUARDED_BY(loop());
    PulseFormat format_{};
    std::size_t frameBytes_ = 0;
    pa_usec_t lastHeard_ ZAV_GUARDED_BY(loop()) = 0;
    bool isAsked_ ZAV_GUARDED_BY(loop()) = false;
    bool isOpen_ ZAV_GUARDED_BY(loop()) = false;
    bool isLost_ ZAV_GUARDED_BY(loop()) = false;
};

}  // namespace zav::detail
