#pragma once

#include <cstdint>
#include <functional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/platform/DispatchQueue.hpp"

/// The audio queue service: plays and captures audio in buffers that travel between the application
/// and the device. The functions have the platform's own names. The folder `queues` implements them
/// here. A port implements its own.
///
/// An application allocates buffers and enqueues them. A buffer comes back through the queue's
/// callback when it has been played (output) or filled (input). Every queue keeps these promises:
///
/// 1. Every enqueued buffer comes back through the callback exactly once, in order, unless
///    the queue is disposed of first.
/// 2. Audio is played and captured in order, without loss or repetition, across pause, resume and
///    restart. A stop of an input queue first returns the captured audio. A part-filled buffer
///    comes back with its real byte count, and the empty buffers follow.
/// 3. A queue is running from a successful start to the end of the stop. A paused queue is running
///    too. An asynchronous stop ends when the last enqueued byte has been played. The queue is no
///    longer running when the buffers of a stop come back.
/// 4. After an immediate `AudioQueueDispose` has returned, no callback runs. The only exception is
///    a callback that made this call.
/// 5. Callbacks of one queue never run at the same time. An output queue runs them on the given
///    dispatch queue. An input queue runs them on its own thread.
/// 6. No call of the application delays the device, and the device thread never calls the
///    application.
/// 7. The device goes away when the sound server dies or does not answer. The queue then stops by
///    itself: it is not running, and all buffers come back. A later start opens the device again.
///
/// A start opens the device and a stop closes it. The device is the sound server's default sink or
/// source, unless the user's own settings name another.
///
/// Formats: linear PCM of 8, 16, 24 and 32 bits, signed and unsigned, and floats of 32 and 64 bits,
/// in both byte orders, interleaved; A-law and mu-law; all with 1 to 8 channels and whole rates of
/// 8 to 192 kHz. A module decodes AAC, MPEG layers 1 to 3, ALAC, FLAC, Opus, Vorbis, AC-3 and AMR
/// for output queues. It encodes AAC, ALAC, FLAC and Opus for input queues. It is loaded when it is
/// first needed.
///
/// Every function returns a status, 0 for success, and throws nothing. A call that fails leaves its
/// out-parameters unchanged. A handle must not be used after its disposal.
///
/// Threads: any thread may call any function. Callbacks may call them too. Calls that open or close
/// the device wait for the sound server, three seconds at most.
namespace zav {

/// A queue.
using AudioQueueRef = struct OpaqueAudioQueue*;

/// Types of parameters that are unused here. Pass null.
using AudioQueueRunLoopRef = struct OpaqueRunLoop*;
using AudioQueueRunLoopMode = struct OpaqueRunLoopMode*;
using AudioQueueTimelineRef = struct OpaqueAudioQueueTimeline*;

/// Memory that a queue owns and lends to the application. It is valid until the queue is disposed
/// of.
struct AudioQueueBuffer {
    const std::uint32_t mAudioDataBytesCapacity;  ///< room in bytes
    void* const mAudioData;                       ///< their memory
    std::uint32_t mAudioDataByteSize = 0;         ///< bytes in use
    void* mUserData = nullptr;                    ///< the application's
};
using AudioQueueBufferRef = AudioQueueBuffer*;

/// A time in a stream.
struct AudioTimeStamp {
    double mSampleTime = 0;  ///< frames since the start of the queue; pauses do not count
};

/// The level of a queue's audio, for a meter. A property of our own.
struct AudioQueueLevel {
    double peak = 0;                       ///< 1 is full scale
    std::uint64_t clippedSampleCount = 0;  ///< samples at full scale, of all channels
};

using AudioQueuePropertyID = std::uint32_t;

/// Properties, with the type of their value. 1 while the queue is running, otherwise 0:
/// std::uint32_t.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_IsRunning = fourCharCode("aqrn");
/// Upper limit for the size of a packet in bytes: std::uint32_t. For PCM, the size of a frame.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MaximumOutputPacketSize =
    fourCharCode("xops");
/// The stream's format: AudioStreamBasicDescription. For an input queue, it includes the fields
/// that the encoder fills in.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_StreamDescription = fourCharCode("aqft");
/// The configuration that the decoder needs in addition to the format: bytes of any length, in the
/// forms of `kAudioFilePropertyMagicCookieData`. An input queue returns its encoder's cookie, or 0
/// bytes if the format has no cookie. The cookie can be set on an output queue.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_MagicCookie = fourCharCode("aqmc");
/// Number of interruptions since the queue was started: std::uint32_t. An output queue counts one
/// when it runs out of audio while it plays. An input queue counts one when it runs out of buffers
/// while it records. A code of our own.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_InterruptionCount = fourCharCode("zint");
/// The peak since the last read, and the clipped samples since the queue was started:
/// AudioQueueLevel. Measured on the device's PCM, after decoding or before encoding. The first read
/// starts the measurement and returns zeros. A code of our own.
inline constexpr AudioQueuePropertyID kAudioQueueProperty_Level = fourCharCode("zlvl");
/// 1 after an output queue has stopped and has played every buffer that it was given:
/// std::uint32_t. Otherwise 0, for example if the device was lost in the middle of the stream. A
/// code of our own.
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

/// Called when an input queue gives a filled buffer back to the application. All pointers are valid
/// only during the call. Only streams with packets of variable size have descriptions. A buffer
/// that a stop returns may be empty.
using AudioQueueInputCallback = void (*)(void* inUserData, AudioQueueRef inAQ,
                                         AudioQueueBufferRef inBuffer,
                                         const AudioTimeStamp* inStartTime,
                                         std::uint32_t inNumberPacketDescriptions,
                                         const AudioStreamPacketDescription* inPacketDescs);

/// Returns a buffer of an output queue. The buffer has been played, or the queue has stopped.
using AudioQueueOutputCallbackBlock =
    std::function<void(AudioQueueRef inAQ, AudioQueueBufferRef inBuffer)>;

/// Makes a queue that captures. The queue passes `inUserData` to every callback and does not use it
/// otherwise. The run loop, its mode and the flags are unused. Pass null, null and 0. Callbacks
/// must not throw.
///
/// Errors: 'fmt?' a format that cannot be captured, -66682 a missing argument, -108 no memory.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* inFormat,
                                                     AudioQueueInputCallback inCallbackProc,
                                                     void* inUserData,
                                                     AudioQueueRunLoopRef inCallbackRunLoop,
                                                     AudioQueueRunLoopMode inCallbackRunLoopMode,
                                                     std::uint32_t inFlags, AudioQueueRef* outAQ);

/// Makes a queue that plays. Its callbacks run on `inCallbackDispatchQueue`, which must outlive the
/// queue. Callbacks must not throw. The flags are unused. Pass 0.
///
/// Errors: 'fmt?' a format that cannot be played, -66682 a missing argument, -108 no memory.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueNewOutputWithDispatchQueue(
    AudioQueueRef* outAQ, const AudioStreamBasicDescription* inFormat, std::uint32_t inFlags,
    DispatchQueueRef inCallbackDispatchQueue, AudioQueueOutputCallbackBlock inCallbackBlock);

/// Allocates a buffer. The queue owns it.
///
/// Errors: -66682 no bytes or a missing argument, -108 no memory, -66685 the queue is being
/// disposed of.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueAllocateBuffer(AudioQueueRef inAQ,
                                                           std::uint32_t inBufferByteSize,
                                                           AudioQueueBufferRef* outBuffer);

/// Gives a buffer to the queue. An input queue fills the buffer. An output queue plays its
/// `mAudioDataByteSize` bytes. The application must not touch the buffer until it comes back.
///
/// The buffers of an output queue form one stream of bytes: a PCM frame, or a packet of constant
/// size, may begin in one buffer and end in the next. Descriptions locate packets of variable size.
/// Their offsets count from the start of the buffer. Without descriptions, the queue parses MPEG
/// layers 1 to 3, AC-3, FLAC frames and AAC with ADTS headers. Such a packet may also continue in
/// the next buffer. In any other format, a buffer without descriptions is one packet. The queue
/// skips packets that cannot be decoded.
///
/// Buffers may be enqueued before the start and during a pause. Buffers that are enqueued during an
/// asynchronous stop are played too. Another thread may stop the queue while a callback runs.
/// Buffers that this callback enqueues after that stop come back at once. An input buffer then
/// comes back empty.
///
/// Errors: -66687 the buffer is not one of this queue, its byte count exceeds its capacity, or an
/// input buffer is too small for a frame or for the largest packet; -66679 the buffer is enqueued
/// already; -66686 an output buffer without bytes; -66682 a description outside the buffer's bytes,
/// or descriptions of an input buffer; -108 no memory; -66685 the queue is being disposed of.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueEnqueueBuffer(
    AudioQueueRef inAQ, AudioQueueBufferRef inBuffer, std::uint32_t inNumPacketDescs,
    const AudioStreamPacketDescription* inPacketDescs);

/// Starts a queue, or resumes a paused one, without delay. `inStartTime` must be null. The call
/// opens the device, except when it resumes an output queue. A start during an asynchronous stop
/// cancels the stop. If the queue is paused, the start resumes it and the stop continues. A start
/// of a running queue changes nothing.
///
/// Errors: -66680 no sound server or no device, -66681 the server does not answer or refuses,
/// -66682 a start time, -108 no memory, -66685 the queue is being disposed of. After an error, the
/// queue keeps its buffers and their audio. An error may reset its time and counts.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueStart(AudioQueueRef inAQ,
                                                  const AudioTimeStamp* inStartTime);

/// Pauses a queue at once. It keeps its buffers and their audio. A paused input queue captures
/// nothing. An input queue stores one second of audio for which it has no buffer. The device keeps
/// later audio, which a pause drops. The call changes nothing if the queue is not running or is
/// paused. It also changes nothing if the queue is stopping and has given all its buffers back.
///
/// Errors: -66680 the device has just gone away, and the queue will stop; -108 no memory; -66685
/// the queue is being disposed of.
ZAV_EXPORT OSStatus AudioQueuePause(AudioQueueRef inAQ);

/// Stops a queue and gives its buffers back.
///
/// Immediate: the queue drops audio that has not been played. The queue is not running when the
/// call returns, and its buffers come back after that. An input queue always stops immediately.
///
/// Asynchronous: the call returns at once, and the queue stops when everything enqueued has been
/// played. A paused queue waits until it is resumed. If all its buffers are back and only a decoder
/// still holds audio, a paused queue plays that audio at once.
///
/// A queue that is not running gives its enqueued buffers back.
///
/// A stop ends a compressed stream. Buffers that are enqueued after the stop are decoded as a new
/// stream. It begins with their next whole packet. The same holds while an asynchronous stop is
/// under way and after it was cancelled.
///
/// Errors: -108 no memory to encode or decode the end of the stream (the end is lost); -66685 the
/// queue is being disposed of.
ZAV_EXPORT OSStatus AudioQueueStop(AudioQueueRef inAQ, bool inImmediate);

/// Frees a queue and its buffers.
///
/// Immediate: no callback runs after the call has returned, except a callback that made the call.
/// The call waits for a callback that runs on another thread.
///
/// Asynchronous: the queue is stopped asynchronously first. A paused queue is stopped immediately.
/// The callbacks continue. The queue is freed after the last callback.
///
/// Errors: -66685 another call is disposing of the queue; -108 no memory to decode the end of the
/// stream (the end is lost, and the queue continues).
ZAV_EXPORT OSStatus AudioQueueDispose(AudioQueueRef inAQ, bool inImmediate);

/// Returns the frames that an output queue has played, or an input queue has captured, since the
/// start. Pauses do not count. The result is 0 before the first start, and the final count after a
/// stop. `inTimeline` must be null. `outTimelineDiscontinuity` may be null. It is set to false.
///
/// Errors: -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetCurrentTime(AudioQueueRef inAQ,
                                                           AudioQueueTimelineRef inTimeline,
                                                           AudioTimeStamp* outTimeStamp,
                                                           bool* outTimelineDiscontinuity);

/// Returns the size in bytes of a property's value.
///
/// Errors: -66684 a property that the queue does not have, -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetPropertySize(AudioQueueRef inAQ,
                                                            AudioQueuePropertyID inID,
                                                            std::uint32_t* outDataSize);

/// Copies the value of a property. On entry, `*ioDataSize` is the room in bytes. On return, it is
/// the size of the value.
///
/// Errors: -66684 a property that the queue does not have, -66683 too little room, -66682 a missing
/// argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueGetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID, void* outData,
                                                        std::uint32_t* ioDataSize);

/// Sets a property. Only the magic cookie of an output queue can be set. Set it before the first
/// buffer is enqueued.
///
/// Errors: -66684 a property that cannot be set on this queue, -66675 the bytes are no valid cookie
/// of its format, -66682 a missing argument.
[[nodiscard]] ZAV_EXPORT OSStatus AudioQueueSetProperty(AudioQueueRef inAQ,
                                                        AudioQueuePropertyID inID,
                                                        const void* inData,
                                                        std::uint32_t inDataSize);

}  // namespace zav
