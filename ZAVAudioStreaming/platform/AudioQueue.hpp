#pragma once

#include <cstdint>
#include <functional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/platform/DispatchQueue.hpp"

/// The audio queue service: plays and captures audio in buffers that travel between the application
/// and the device. These are the platform's functions by their own names. `queues` implements them
/// here; a port implements its own.
///
/// An application allocates buffers and enqueues them. Each comes back through the queue's callback
/// when it has been played (output) or filled (input). Every queue keeps these promises:
///
/// 1. Every enqueued buffer comes back through the callback exactly once, in order, unless
///    the queue is disposed of first.
/// 2. Audio is played and captured in order, without loss or repetition, across pause, resume and
///    restart. A stop of an input queue first returns the captured audio: a part-filled buffer with
///    its real byte count, then the empty buffers.
/// 3. A queue is running from a successful start to the end of the stop, also while it is paused.
///    An asynchronous stop ends when the last enqueued byte has been played. The queue is no longer
///    running when the buffers of a stop come back.
/// 4. After `AudioQueueDispose` has returned, no callback runs, except the one that called it.
/// 5. Callbacks of one queue never run at the same time. Those of an output queue run on the given
///    dispatch queue, those of an input queue on a thread of its own.
/// 6. No call of the application delays the device, and the device thread never calls the
///    application.
/// 7. When the device goes away (the sound server dies or does not answer), the queue stops by
///    itself: it is not running, all buffers come back, and a later start opens the device again.
///
/// A start opens the device and a stop closes it. The device is the sound server's default sink or
/// source, unless the user's own settings name another.
///
/// Formats: linear PCM of 8, 16, 24 and 32 bits, signed and unsigned, and floats of 32 and 64 bits,
/// in both byte orders, interleaved; A-law and mu-law; all with 1 to 8 channels and whole rates of
/// 8 to 192 kHz. A module that is loaded on first need decodes AAC, MPEG layers 1 to 3, ALAC, FLAC,
/// Opus, Vorbis, AC-3 and AMR for output queues, and encodes AAC, ALAC, FLAC and Opus for input
/// queues.
///
/// Every function returns a status, 0 for success, and throws nothing. A call that fails leaves its
/// out-parameters unchanged. A handle must not be used after its disposal.
///
/// Threads: any thread may call any function, also from inside a callback. Calls that open or close
/// the device wait for the sound server, three seconds at most.
namespace zav {

/// A queue.
using AudioQueueRef = struct OpaqueAudioQueue*;

/// Parameters that have no meaning here: always null.
using AudioQueueRunLoopRef = struct OpaqueRunLoop*;
using AudioQueueRunLoopMode = struct OpaqueRunLoopMode*;
using AudioQueueTimelineRef = struct OpaqueAudioQueueTimeline*;

/// Memory that a queue owns and lends to the application, until the queue is disposed of.
struct AudioQueueBuffer {
    const std::uint32_t mAudioDataBytesCapacity;  ///< bytes that fit
    void* const mAudioData;                       ///< their memory
    std::uint32_t mAudioDataByteSize = 0;         ///< bytes in use
    void* mUserData = nullptr;                    ///< the application's
};
using AudioQueueBufferRef = AudioQueueBuffer*;

/// A time in a stream.
struct AudioTimeStamp {
    double mSampleTime = 0;  ///< frames since the queue was started, without its pauses
};

/// How loud a queue's audio is, for a meter. A property of our own.
struct AudioQueueLevel {
    double peak = 0;                       ///< 1 is full scale
    std::uint64_t clippedSampleCount = 0;  ///< samples at full scale, of all channels
};

using AudioQueuePropertyID = std::uint32_t;

/// Properties, with the type of their value.
/// Whether the queue runs, 1 or 0: std::uint32_t.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_IsRunning = fourCharCode("aqrn");
/// Upper limit for the bytes of a packet; for PCM, the bytes of a frame: std::uint32_t.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MaximumOutputPacketSize =
    fourCharCode("xops");
/// The stream's format: AudioStreamBasicDescription. That of an input queue includes the fields
/// that its encoder fills in.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_StreamDescription = fourCharCode("aqft");
/// The decoder's configuration, beside the format: bytes of any length, in the forms of
/// `kAudioFilePropertyMagicCookieData`. An input queue returns that of its encoder, or 0 bytes if
/// the format has none. It can be set on an output queue.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MagicCookie = fourCharCode("aqmc");
/// How often a playing output queue has run out of audio, or a recording input queue out of
/// buffers, since it was started: std::uint32_t. A code of our own.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_InterruptionCount = fourCharCode("zint");
/// The peak since the last read, and the clipped samples since the queue was started:
/// AudioQueueLevel. Measured on the device's PCM, after decoding or before encoding. The first read
/// starts the measurement and returns zeros. A code of our own.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_Level = fourCharCode("zlvl");
/// 1 after an output queue has stopped and played every buffer that it was given; 0 if it has not,
/// or if the device was lost in the middle of the stream: std::uint32_t. A code of our own.
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

/// Returns a filled buffer of an input queue. All pointers are valid only during the call. Only
/// streams with packets of variable size have descriptions. A buffer that a stop returns may be
/// empty.
using AudioQueueInputCallback = void (*)(void* inUserData, AudioQueueRef inAQ,
                                         AudioQueueBufferRef inBuffer,
                                         const AudioTimeStamp* inStartTime,
                                         std::uint32_t inNumberPacketDescriptions,
                                         const AudioStreamPacketDescription* inPacketDescs);

/// Returns a buffer of an output queue: it has been played, or the queue has stopped.
using AudioQueueOutputCallbackBlock =
    std::function<void(AudioQueueRef inAQ, AudioQueueBufferRef inBuffer)>;

/// Makes a queue that captures. `inUserData` is passed to every callback and not used otherwise.
/// The run loop, its mode and the flags are unused: null, null and 0. Callbacks throw nothing.
///
/// Errors: 'fmt?' a format that cannot be captured, -66682 a missing argument, -108 no memory.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* inFormat,
                                                     AudioQueueInputCallback inCallbackProc,
                                                     void* inUserData,
                                                     AudioQueueRunLoopRef inCallbackRunLoop,
                                                     AudioQueueRunLoopMode inCallbackRunLoopMode,
                                                     std::uint32_t inFlags, AudioQueueRef* outAQ);

/// Makes a queue that plays. Its callbacks run on `inCallbackDispatchQueue`, which must outlive the
/// queue. They throw nothing. The flags are unused: 0.
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

/// Gives a buffer to the queue: to be filled, or to have its `mAudioDataByteSize` bytes played. The
/// application must not touch it until it comes back.
///
/// The buffers of an output queue form one stream of bytes: a PCM frame, or a packet of constant
/// size, may begin in one buffer and end in the next. Descriptions locate packets of variable size;
/// their offsets count from the start of the buffer. Without descriptions, MPEG layers 1 to 3,
/// AC-3, FLAC frames and AAC with ADTS headers are parsed, however they are cut into buffers. In
/// any other format, a buffer without descriptions is one packet. Packets that cannot be decoded
/// are left out.
///
/// Buffers may be enqueued before the start and during a pause. Between an asynchronous stop and
/// its end they are played too. If another thread has stopped the queue since a callback began, the
/// buffers that the callback enqueues come back at once (an input buffer empty).
///
/// Errors: -66687 not a buffer of this queue, more bytes than it has room for, or an input buffer
/// without room for a frame or for the largest packet; -66679 the buffer is enqueued already;
/// -66686 an output buffer without bytes; -66682 a description outside the buffer's bytes, or
/// descriptions of an input buffer; -108 no memory; -66685 the queue is being disposed of.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueEnqueueBuffer(
    AudioQueueRef inAQ, AudioQueueBufferRef inBuffer, std::uint32_t inNumPacketDescs,
    const AudioStreamPacketDescription* inPacketDescs);

/// Starts a queue, or resumes a paused one, at once: `inStartTime` is null. It opens the device,
/// unless it resumes an output queue. A start during an asynchronous stop calls the stop off,
/// unless the queue is paused: then the stop continues. A start of a running queue changes nothing.
///
/// Errors: -66680 no sound server or no device, -66681 the server does not answer or refuses,
/// -66682 a start time, -108 no memory, -66685 the queue is being disposed of. The queue keeps its
/// buffers and their audio. Its time and counts may have been reset.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueStart(AudioQueueRef inAQ,
                                                  const AudioTimeStamp* inStartTime);

/// Pauses a queue at once. It keeps its buffers and their audio. A paused input queue captures
/// nothing. If the application is more than a second late with its buffers, the audio that the
/// device has held back for it is lost. The call changes nothing if the queue is not running, is
/// paused, or is stopping and has given all its buffers back.
///
/// Errors: -66680 the device has just gone away, and the queue will stop; -108 no memory; -66685
/// the queue is being disposed of.
ZAV_EXPORT OSStatus AudioQueuePause(AudioQueueRef inAQ);

/// Stops a queue and gives its buffers back.
///
/// Immediate: audio that has not been played is dropped. The queue is not running when the call
/// returns, and its buffers come back after that. An input queue always stops immediately.
///
/// Asynchronous: the call returns at once, and the queue stops when everything enqueued has been
/// played. A paused queue plays it after it is resumed; but if all its buffers are back, and only a
/// decoder still holds audio, it plays that at once.
///
/// A queue that is not running gives its enqueued buffers back.
///
/// A compressed stream ends with a stop. Buffers that are enqueued before an asynchronous stop has
/// ended, or after it was called off, are decoded as a new stream that begins with their next whole
/// packet.
///
/// Errors: -108 no memory to encode or decode the end, which is lost; -66685 the queue is being
/// disposed of.
ZAV_EXPORT OSStatus AudioQueueStop(AudioQueueRef inAQ, bool inImmediate);

/// Frees a queue and its buffers.
///
/// Immediate: no callback runs when the call returns, except the one that made the call. It waits
/// for a callback that runs on another thread.
///
/// Asynchronous: the queue is stopped asynchronously first (a paused one immediately). Its
/// callbacks go on, and it is freed after the last one.
///
/// Errors: -66685 another call is disposing of the queue; -108 no memory to decode the end, which
/// is lost, and the queue goes on.
ZAV_EXPORT OSStatus AudioQueueDispose(AudioQueueRef inAQ, bool inImmediate);

/// Returns the frames that an output queue has played, or an input queue has captured, since the
/// start, without pauses: 0 before the first start, and the final count after a stop. `inTimeline`
/// is null. `outTimelineDiscontinuity` may be null, and is set to false.
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

/// Copies the value of a property. `*ioDataSize` is the room in bytes on entry, and the size of the
/// value on return.
///
/// Errors: -66684 a property that the queue does not have, -66683 too little room, -66682 a missing
/// argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID, void* outData,
                                                        std::uint32_t* ioDataSize);

/// Sets a property. Only the magic cookie of an output queue can be set, before its first buffer is
/// enqueued.
///
/// Errors: -66684 a property that cannot be set on this queue, -66675 bytes that are no cookie of
/// its format, -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueSetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID,
                                                        const void* inData,
                                                        std::uint32_t inDataSize);

}  // namespace zav
