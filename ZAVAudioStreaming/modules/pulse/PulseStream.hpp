#pragma once

#include <pulse/pulseaudio.h>

#include <cstdint>
#include <optional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseFormat.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseTimer.hpp"

namespace zav::detail {

/// What playing and capturing have in common: a stream on a connection of its own, opened within a
/// bound, and the watch over its server. The server says something all the time, with what it has
/// captured, or since libpulse asks it for the timing of what plays; when nothing has come for two
/// seconds it is asked for that once more, and after two more it counts as gone.
///
/// Threads: `open` without the lock, the rest with it; a derived class closes in its destructor.
class PulseStream {
 public:
    PulseStream(const PulseStream&) = delete;
    PulseStream& operator=(const PulseStream&) = delete;

 protected:
    PulseStream() = default;
    virtual ~PulseStream() = default;

    /// Statuses: those of `QueueDevice`.
    OSStatus open(const PulseFormat& format, pa_stream_direction_t direction,
                  pa_stream_flags_t moreFlags);

    /// After this nothing is called back any more.
    void close();

    /// The stream is there, and nothing was said of it yet: the place to set its callbacks.
    virtual void opened() = 0;

    /// The server has said something, and everything that libpulse knows may have changed.
    virtual void heard() noexcept = 0;

    /// The server or the device is gone. Called once; nothing is called after it.
    virtual void lost() noexcept = 0;

    /// To be called whenever the server says something; calls `heard`.
    void noteSignOfLife();

    const PulseLoop& loop() const { return connection_.loop(); }
    PulseConnection& connection() { return connection_; }
    pa_stream* stream() const { return stream_.get(); }
    bool isLost() const { return isLost_; }
    const PulseFormat& format() const { return format_; }
    std::size_t frameBytes() const { return frameBytes_; }
    pa_usec_t duration(std::uint64_t frameCount) const;
    std::uint64_t frameCount(pa_usec_t duration) const;

    void cork(bool isCorked);
    /// The answer is a sign of life.
    void askForTiming();

 private:
    static void onState(pa_stream* stream, void* self) noexcept;
    static void onWord(pa_stream* stream, void* self) noexcept;
    void watch();
    void lose();

    PulseConnection connection_;
    PulseStreamObject stream_;
    std::optional<PulseTimer> watchdog_;
    PulseFormat format_{};
    std::size_t frameBytes_ = 0;
    pa_usec_t lastHeard_ = 0;
    bool isAsked_ = false;
    bool isOpen_ = false;
    bool isLost_ = false;
};

}  // namespace zav::detail
