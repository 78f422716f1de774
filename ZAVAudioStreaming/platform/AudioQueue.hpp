#pragma once

#include <cstdint>
#include <functional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/platform/DispatchQueue.hpp"

/// The audio queue service: plays and captures audio in buffers that travel between the application
/// and the device. These are the platform's functions by their own names; `queues` supplies
/// them here, and a port supplies its own.
///
/// An application allocates buffers, enqueues them, and gets each back through the queue's callback
/// when it has been played (output) or filled (input). What holds for every queue:
///
/// 1. Every buffer that was enqueued comes back through the callback exactly once, in order, unless
///    the queue is disposed of first.
/// 2. Audio is played and captured in order, without loss or repetition, across pause, resume and
///    restart. Stopping an input queue first hands back what was captured: a part-filled buffer
///    with its real byte count, then the empty ones.
/// 3. A queue is running from a successful start to the end of the stop, also while it is paused.
///    An asynchronous stop ends when the last byte enqueued has been played. While the buffers that
///    a stop gives back are on their way the queue is not running any more.
/// 4. After `AudioQueueDispose` no callback runs or is running, except the one that called it.
/// 5. Callbacks of one queue never run at the same time as each other: an output queue's come
///    through the dispatch queue that it was given, an input queue's on a thread of the queue's
///    own.
/// 6. No call of the application holds up the device, and the device's thread never calls the
///    application.
/// 7. When the device goes away (the sound server dies or stops answering) the queue stops by
///    itself: it is not running, all buffers come back, and a later start opens the device again.
///
/// The device is opened when a queue is started, and closed when it stops: the sound server's
/// default sink and source, unless the user's own settings name others.
///
/// Formats: linear PCM of 8, 16, 24 and 32 bits, signed and unsigned, and floats of 32 and 64 bits,
/// in both byte orders, interleaved; A-law and mu-law; all with 1 to 8 channels and whole rates of
/// 8 to 192 kHz. A module that is loaded on first need decodes AAC, MPEG layers 1 to 3, ALAC, FLAC,
/// Opus, Vorbis, AC-3 and AMR for output queues and encodes AAC, ALAC, FLAC and Opus for input
/// queues.
///
/// Every function answers with a status, 0 for success, and throws nothing. Out-parameters are
/// untouched by a call that fails. A handle that was disposed of must not be used again.
///
/// Threads: any thread may call any function, also from inside a callback. Calls that open or close
/// the device wait for the sound server, three seconds at most.
namespace zav {

/// A queue.
using AudioQueueRef = struct OpaqueAudioQueue*;

/// Places of the platform that do not exist here: always null.
using AudioQueueRunLoopRef = struct OpaqueRunLoop*;
using AudioQueueRunLoopMode = struct OpaqueRunLoopMode*;
using AudioQueueTimelineRef = struct OpaqueAudioQueueTimeline*;

/// Memory that a queue owns and lends to the application, until the queue is disposed of.
struct AudioQueueBuffer {
    const std::uint32_t mAudioDataBytesCapacity;  ///< bytes that fit
    void* const mAudioData;                       ///< where they are
    std::uint32_t mAudioDataByteSize = 0;         ///< bytes that are filled
    void* mUserData = nullptr;                    ///< the application's
};
using AudioQueueBufferRef = AudioQueueBuffer*;

/// A moment of a stream.
struct AudioTimeStamp {
    double mSampleTime = 0;  ///< frames since the queue was started, without its pauses
};

/// How loud a queue's audio is, for a meter. Our own: the platform has another.
struct AudioQueueLevel {
    double peak = 0;                       ///< 1 is full scale
    std::uint64_t clippedSampleCount = 0;  ///< samples at full scale, of all channels
};

using AudioQueuePropertyID = std::uint32_t;

/// Properties, with the type of their value.
/// Whether the queue runs, 1 or 0: std::uint32_t.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_IsRunning = fourCharCode("aqrn");
/// Bytes that no packet of the stream exceeds; for PCM, of one frame: std::uint32_t.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MaximumOutputPacketSize =
    fourCharCode("xops");
/// The stream's format, an input queue's with what its encoder adds: AudioStreamBasicDescription.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_StreamDescription = fourCharCode("aqft");
/// What a decoder needs beside the format: any length, in the forms of
/// `kAudioFilePropertyMagicCookieData`. An input queue tells its encoder's, 0 bytes where there is
/// none; an output queue's can be set.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MagicCookie = fourCharCode("aqmc");
/// How often a playing output queue has run out of audio, or a recording input queue out of
/// buffers, since it was started: std::uint32_t. Our own code: the platform has none.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_InterruptionCount = fourCharCode("zint");
/// The peak since the property was read last, and the clipped samples since the queue was started:
/// AudioQueueLevel. Of what the device takes or gives, after decoding and before encoding. The
/// first reading begins the measuring and tells nothing yet. Our own code.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_Level = fourCharCode("zlvl");
/// Whether an output queue has stopped with all played that was enqueued for its last run or since,
/// 1 or 0: what tells an end from the loss of the device, which in the middle of a stream is 0.
/// std::uint32_t. Our own code.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_HasPlayedAll = fourCharCode("zall");

/// The service's own statuses.
inline constexpr OSStatus kAudioQueueErr_InvalidBuffer = -66687;
inline constexpr OSStatus kAudioQueueErr_BufferEmpty = -66686;
inline constexpr OSStatus kAudioQueueErr_DisposalPending = -66685;
inline constexpr OSStatus kAudioQueueErr_InvalidProperty = -66684;
inline constexpr OSStatus kAudioQueueErr_InvalidPropertySize = -66683;
inline constexpr OSStatus kAudioQueueErr_InvalidParameter = -66682;
inline constexpr OSStatus kAudioQueueErr_CannotStart = -66681;
inline constexpr OSStatus kAudioQueueErr_InvalidDevice = -66680;
inline constexpr OSStatus kAudioQueueErr_BufferInQueue = -66679;
inline constexpr OSStatus kAudioQueueErr_InvalidPropertyValue = -66675;
inline constexpr OSStatus kAudioFormatUnsupportedDataFormatError =
    static_cast<OSStatus>(fourCharCode("fmt?"));
/// Common to all services; the name is our own.
inline constexpr OSStatus kAudioQueueErr_NoMemory = -108;

/// Hands a filled buffer of an input queue back. All pointers live only during the call; only a
/// stream of packets of varying size has descriptions. A buffer that a stop gives back may be
/// empty.
using AudioQueueInputCallback = void (*)(void* inUserData, AudioQueueRef inAQ,
                                         AudioQueueBufferRef inBuffer,
                                         const AudioTimeStamp* inStartTime,
                                         std::uint32_t inNumberPacketDescriptions,
                                         const AudioStreamPacketDescription* inPacketDescs);

/// Hands a buffer of an output queue back: it has been played, or the queue has stopped.
using AudioQueueOutputCallbackBlock =
    std::function<void(AudioQueueRef inAQ, AudioQueueBufferRef inBuffer)>;

/// Makes a queue that captures. `inUserData` goes to every callback and is not looked at. Run loop,
/// its mode and the flags are not used here: null, null and 0. Callbacks throw nothing.
///
/// Errors: 'fmt?' a format that cannot be captured, -66682 a missing argument, -108 no memory.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* inFormat,
                                                     AudioQueueInputCallback inCallbackProc,
                                                     void* inUserData,
                                                     AudioQueueRunLoopRef inCallbackRunLoop,
                                                     AudioQueueRunLoopMode inCallbackRunLoopMode,
                                                     std::uint32_t inFlags, AudioQueueRef* outAQ);

/// Makes a queue that plays. Its callbacks come through `inCallbackDispatchQueue`, which must live
/// as long as the queue; they throw nothing. The flags are not used: 0.
///
/// Errors: 'fmt?' a format that cannot be played, -66682 a missing argument, -108 no memory.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueNewOutputWithDispatchQueue(
    AudioQueueRef* outAQ, const AudioStreamBasicDescription* inFormat, std::uint32_t inFlags,
    DispatchQueueRef inCallbackDispatchQueue, AudioQueueOutputCallbackBlock inCallbackBlock);

/// Allocates a buffer, which belongs to the queue.
///
/// Errors: -66682 no bytes or a missing argument, -108 no memory, -66685 the queue is being
/// disposed of.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueAllocateBuffer(AudioQueueRef inAQ,
                                                           std::uint32_t inBufferByteSize,
                                                           AudioQueueBufferRef* outBuffer);

/// Gives a buffer to the queue: to be filled, or with `mAudioDataByteSize` bytes to be played. The
/// application must not touch it until it comes back.
///
/// The buffers of an output queue are one stream of bytes: a PCM frame, and a packet of constant
/// size, may begin in one buffer and end in the next. Packets of varying size are found by their
/// descriptions, whose offsets count from the start of the buffer. Without descriptions MPEG
/// layers 1 to 3, AC-3, FLAC frames and AAC with ADTS headers are parsed, wherever they are cut;
/// any other buffer without them is one packet. What cannot be decoded is left out.
///
/// Buffers may be enqueued before the queue is started and while it is paused. In the time between
/// an asynchronous stop and its end they are played as well. What a callback enqueues although
/// another thread has stopped the queue since the callback began comes back at once, an input
/// buffer empty, and does not wait for a next run.
///
/// Errors: -66687 not a buffer of this queue, more bytes than it has room for, or an input buffer
/// with no room for a frame or a packet of the largest size; -66679 a buffer
/// that is enqueued already; -66686 an output buffer without bytes; -66682 descriptions of bytes
/// that are not there, or of an input buffer; -108 no memory; -66685 the queue is being disposed
/// of.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueEnqueueBuffer(
    AudioQueueRef inAQ, AudioQueueBufferRef inBuffer, std::uint32_t inNumPacketDescs,
    const AudioStreamPacketDescription* inPacketDescs);

/// Starts a queue, or goes on after a pause, at once: `inStartTime` is null. Opens the device
/// unless an output queue only paused. A start during an asynchronous stop calls that off, unless
/// the queue is paused: then the stop goes on, too. Starting a queue that runs and is not paused
/// changes nothing.
///
/// Errors: -66680 no sound server or no device on it, -66681 the server does not answer or refuses,
/// -66682 a start time, -108 no memory, -66685 the queue is being disposed of. The queue keeps its
/// buffers and what is in them; its time and its counts may have begun anew.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueStart(AudioQueueRef inAQ,
                                                  const AudioTimeStamp* inStartTime);

/// Pauses a queue, at once. It keeps its buffers and what is in them; audio that sounds while an
/// input queue is paused is not captured, and what the device has held back for an application that
/// is more than a second late with its buffers is lost. A queue that does not run, or is paused,
/// stays as it is; so does one that is being stopped and has given all its buffers back.
///
/// Errors: -66680 the device has just gone away, and the queue is about to stop; -108 no memory;
/// -66685 the queue is being disposed of.
ZAV_EXPORT OSStatus AudioQueuePause(AudioQueueRef inAQ);

/// Stops a queue and gives its buffers back.
///
/// Immediately: what has not been played is dropped, and the queue is not running when the call
/// returns; the buffers come back after that. Otherwise what is enqueued is played first (when the
/// queue is paused: once it goes on; at once when all its buffers are back and only a decoder still
/// holds audio) and the call returns before that; an input queue, which has nothing to wait for,
/// stops immediately either way. A queue that does not run gives back what is enqueued.
///
/// A compressed stream ends here: what is enqueued before an asynchronous stop is over, or after it
/// was called off, is decoded as one that begins with its next whole packet.
///
/// Errors: -108 no memory to encode or decode the end, which is lost; -66685 the queue is being
/// disposed of.
ZAV_EXPORT OSStatus AudioQueueStop(AudioQueueRef inAQ, bool inImmediate);

/// Ends a queue and frees it with its buffers. Immediately: no callback runs when the call returns,
/// except one that makes the call; it waits for a callback that is running on another thread.
/// Otherwise the queue is stopped asynchronously first (a paused one at once), its callbacks go on,
/// and it frees itself after the last one.
///
/// Errors: -66685 another call is disposing of it; -108 no memory to decode the end, which is
/// lost; the queue goes on.
ZAV_EXPORT OSStatus AudioQueueDispose(AudioQueueRef inAQ, bool inImmediate);

/// How far the queue is: an output queue's frames played, an input queue's frames captured, since
/// it was started; the pauses do not count. 0 before the first start, where it ended after a stop.
/// `inTimeline` is null; `outTimelineDiscontinuity` may be null and is set to false.
///
/// Errors: -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetCurrentTime(AudioQueueRef inAQ,
                                                           AudioQueueTimelineRef inTimeline,
                                                           AudioTimeStamp* outTimeStamp,
                                                           bool* outTimelineDiscontinuity);

/// Size in bytes of a property's value.
///
/// Errors: -66684 a property that the queue does not have, -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetPropertySize(AudioQueueRef inAQ,
                                                            AudioQueuePropertyID inID,
                                                            std::uint32_t* outDataSize);

/// Copies a property's value; `*ioDataSize` is the room in bytes on entry, the value's size on
/// return.
///
/// Errors: -66684 a property that the queue does not have, -66683 too little room, -66682 a missing
/// argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID, void* outData,
                                                        std::uint32_t* ioDataSize);

/// Sets a property: the magic cookie of an output queue, before its first buffer is enqueued.
///
/// Errors: -66684 a property that cannot be set on this queue, -66675 bytes that are no cookie of
/// its format, -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueSetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID,
                                                        const void* inData,
                                                        std::uint32_t inDataSize);

}  // namespace zav
