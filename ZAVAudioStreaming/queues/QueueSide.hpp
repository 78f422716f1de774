#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/BufferLedger.hpp"
#include "ZAVAudioStreaming/support/Mutex.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {

/// The audio of a queue, between its buffers and the device: `InputSide` and `OutputSide`. It does
/// not know callbacks. It knows starts and stops only through the functions below.
///
/// Threads: `mutex` guards the buffers and all audio. It is held while a buffer is copied, decoded
/// or encoded. No callback runs under it. The device thread never takes it. The four device
/// functions may wait for the sound server, so they take the mutex only where they need it.
/// `BufferQueue` calls them one at a time. The mutex and the buffers are here and not in
/// `BufferQueue`, because the compiler can check only a lock that an object owns.
class QueueSide {
 public:
    virtual ~QueueSide() = default;

    QueueSide(const QueueSide&) = delete;
    QueueSide& operator=(const QueueSide&) = delete;

    Mutex mutex;
    BufferLedger buffers ZAV_GUARDED_BY(mutex);

    // The device. After a status other than noErr, the side has no new stream. It keeps its buffers
    // and their audio. Its position and counts may have been reset.
    virtual OSStatus openDevice() ZAV_EXCLUDES(mutex) = 0;
    virtual OSStatus resumeDevice() ZAV_EXCLUDES(mutex) = 0;
    /// The side still notices a lost device during the pause.
    virtual OSStatus pauseDevice() ZAV_EXCLUDES(mutex) = 0;
    virtual void closeDevice() ZAV_EXCLUDES(mutex) = 0;

    virtual bool isDeviceGone() const = 0;

    // The buffers.
    /// Returns noErr if a buffer can be enqueued with these descriptions. An input side empties the
    /// buffer. An output side then no longer counts as played out, even if the buffer comes too
    /// late to be enqueued.
    virtual OSStatus prepare(AudioQueueBuffer& buffer,
                             std::span<const AudioStreamPacketDescription> descriptions)
        ZAV_REQUIRES(mutex) = 0;
    /// Takes the audio of `entry`, the last one enqueued. If this throws, the entry is removed.
    virtual void accept(BufferLedger::Entry& entry,
                        std::span<const AudioStreamPacketDescription> descriptions)
        ZAV_REQUIRES(mutex) = 0;
    /// Gives back the buffers that the device no longer needs. While the audio plays out, the last
    /// buffer stays until the queue has stopped.
    virtual void collect() ZAV_REQUIRES(mutex) = 0;
    /// Call after the device is closed. Puts the captured audio into buffers and drops the audio of
    /// the run.
    virtual void endRun() ZAV_REQUIRES(mutex) = 0;

    // An asynchronous stop. An input side has nothing to play out.
    /// Announces that no buffer follows. Returns true if everything has been played already.
    virtual bool beginPlayingOut() ZAV_REQUIRES(mutex) { return true; }
    /// Announces that buffers follow after all.
    virtual void callOffPlayingOut() ZAV_REQUIRES(mutex) {}
    virtual bool isPlayedOut() const ZAV_REQUIRES(mutex) { return true; }

    // Properties.
    virtual double currentFrame() ZAV_REQUIRES(mutex) = 0;
    virtual AudioStreamBasicDescription streamFormat() const ZAV_REQUIRES(mutex) = 0;
    virtual std::uint32_t maximumPacketSize() const ZAV_REQUIRES(mutex) = 0;
    virtual std::vector<std::byte> magicCookie() const ZAV_REQUIRES(mutex) = 0;
    virtual std::uint32_t interruptionCount() const = 0;
    virtual AudioQueueLevel takeLevel() = 0;
    // Properties of output queues only. Both throw kAudioQueueErr_InvalidProperty for an input.
    virtual void setMagicCookie(std::span<const std::byte> /*cookie*/) ZAV_REQUIRES(mutex) {
        throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }
    virtual bool lastRunWasPlayedOut() const ZAV_REQUIRES(mutex) {
        throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }

 protected:
    QueueSide() = default;
};

/// Makes the side of a queue. `wake` makes the queue's callbacks run soon. It takes no lock and
/// allocates nothing, because the device thread calls it.
using QueueSideMaker = std::function<std::unique_ptr<QueueSide>(std::function<void()> wake)>;

}  // namespace zav::detail
