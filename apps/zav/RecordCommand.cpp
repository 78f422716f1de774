#include "RecordCommand.hpp"

#include <ZAVAudioStreaming/codecs/FrameAligner.hpp>
#include <ZAVAudioStreaming/codecs/OpusEncoder.hpp>
#include <ZAVAudioStreaming/codecs/SBCEncoder.hpp>
#include <ZAVAudioStreaming/core/AudioQueueError.hpp>
#include <ZAVAudioStreaming/core/AudioStreamError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/OwnedAudioQueue.hpp>
#include <ZAVAudioStreaming/sources/RecordSource.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "Container.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "LevelDisplay.hpp"
#include "LiveAudio.hpp"
#include "MainThread.hpp"
#include "OutputFile.hpp"
#include "StatusLine.hpp"

namespace zavtool {
namespace {

struct Codec {
    std::string_view name;
    std::uint32_t formatID;
};

constexpr Codec kCodecs[] = {
    {"pcm", zav::kAudioFormatLinearPCM}, {"aac", zav::kAudioFormatMPEG4AAC},
    {"alac", zav::kAudioFormatALAC},     {"flac", zav::kAudioFormatFLAC},
    {"opus", zav::kAudioFormatOpus},     {"sbc", zav::kAudioFormatSbc},
};

/// What files of a type hold unless --codec says otherwise; empty when nothing here encodes for
/// them.
std::string_view usualCodecOf(const FileType& type) {
    switch (type.id) {
        case zav::kAudioFileM4AType:
        case zav::kAudioFileMPEG4Type:
        case zav::kAudioFileAAC_ADTSType:
            return "aac";
        case zav::kAudioFileFLACType:
            return "flac";
        case zav::kAudioFileOggType:
        case kOpusContainerType:
            return "opus";
        case zav::kAudioFileSBCType:
        case kSbcContainerType:
            return "sbc";
        default:
            return type.holdsPcm ? "pcm" : "";
    }
}

bool canBeRecorded(const FileType& type) {
    return !usualCodecOf(type).empty();
}

/// The format of the microphone's stream, and what becomes of it.
struct Recording {
    const FileType* type;
    std::uint32_t codec;                        ///< a format ID
    zav::AudioStreamBasicDescription captured;  ///< what the queue is asked for

    bool isOwnCodec() const { return captured.mFormatID != codec; }
};

zav::AudioStreamBasicDescription pcmFormat(const RecordOptions& options, bool isBigEndian) {
    zav::AudioStreamBasicDescription format;
    format.mSampleRate = options.rate;
    format.mFormatID = zav::kAudioFormatLinearPCM;
    format.mFormatFlags = zav::kAudioFormatFlagIsSignedInteger | zav::kAudioFormatFlagIsPacked |
                          (isBigEndian ? zav::kAudioFormatFlagIsBigEndian : 0);
    format.mBytesPerPacket = 2 * options.channels;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket;
    format.mChannelsPerFrame = options.channels;
    format.mBitsPerChannel = 16;
    return format;
}

Recording recordingFor(const RecordOptions& options) {
    const FileType* const type = typeForName(options.output);
    if (type == nullptr || !canBeRecorded(*type)) {
        throw UsageFailure(shown(options.output) + ": " +
                           (type == nullptr ? "a name of unknown type"
                                            : "nothing here encodes " + std::string(type->name)) +
                           "; a name with " + extensionsOfTypes(canBeRecorded));
    }
    const std::string_view name = options.codec ? *options.codec : usualCodecOf(*type);
    const auto* const codec = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                           [&](const Codec& other) { return other.name == name; });
    Recording recording{type, codec->formatID, pcmFormat(options, holdsHighBytesFirst(*type))};
    if (recording.codec != zav::kAudioFormatSbc && options.sbc.areGiven()) {
        throw UsageFailure("--bitpool, --mode, --subbands, --blocks or --allocation for " +
                           std::string(name) + "; these are SBC's");
    }
    // Ogg's Opus comes from the queue, which tells the file the encoder's delay; the container has
    // no place for that, and is for what the library's own encoder makes.
    if (recording.codec != zav::kAudioFormatLinearPCM && recording.codec != zav::kAudioFormatSbc &&
        type->id != kOpusContainerType) {
        recording.captured = {};
        recording.captured.mSampleRate = options.rate;
        recording.captured.mFormatID = recording.codec;
        recording.captured.mChannelsPerFrame = options.channels;
    }
    return recording;
}

/// What a recording can be asked for, for a format that is refused.
std::string wantedOf(std::uint32_t codec) {
    switch (codec) {
        case zav::kAudioFormatSbc:
            return "--rate 16000, 32000, 44100 or 48000 and --channels 1 or 2";
        case zav::kAudioFormatOpus:
            return "--rate 8000, 12000, 16000, 24000 or 48000 (.zopus: 8000, 16000 or 48000) and "
                   "--channels 1 or 2";
        case zav::kAudioFormatMPEG4AAC:
            return "--rate 8000 to 96000 as AAC has them, such as 16000, 44100 or 48000, and "
                   "--channels 1 to 6 or 8";
        default:
            return "--rate 8000 to 192000 and --channels 1 to 8";
    }
}

/// A source counts the bytes of half a second of packets, as if each held one frame, in 32 bits,
/// and stops the process when there are more.
bool canBeCounted(const zav::AudioStreamBasicDescription& format) {
    zav::AudioQueueRef made = nullptr;
    constexpr auto kOnBuffer = [](void*, zav::AudioQueueRef, zav::AudioQueueBufferRef,
                                  const zav::AudioTimeStamp*, std::uint32_t,
                                  const zav::AudioStreamPacketDescription*) {};
    if (zav::AudioQueueNewInput(&format, kOnBuffer, nullptr, nullptr, nullptr, 0, &made) !=
        zav::noErr) {
        return true;  // the source says why
    }
    const zav::OwnedAudioQueue queue(made);
    std::uint32_t packetSize = 0;
    return zav::readAudioQueueProperty(made, zav::kAudioQueueProperty_MaximumOutputPacketSize,
                                       packetSize) != zav::noErr ||
           format.mSampleRate / 2 * packetSize <= std::numeric_limits<std::uint32_t>::max();
}

std::shared_ptr<zav::RecordSource> openMicrophone(const RecordOptions& options,
                                                  const Recording& recording) {
    if (!canBeCounted(recording.captured)) {
        refuseFormat(options.output, recording.captured,
                     "fewer --channels or a lower --rate for packets of this size");
    }
    try {
        return zav::makeNode<zav::RecordSource>(recording.captured);
    } catch (const zav::AudioQueueError& error) {
        if (error.status() == zav::kAudioFormatUnsupportedDataFormatError) {
            refuseFormat(options.output, recording.captured, wantedOf(recording.codec));
        }
        throw SoundServerFailure(error.status());
    }
}

/// The stream as its encoder has it: a source declares the format that was asked for, which does
/// not tell the frames in a packet, and without those a file knows no time.
std::shared_ptr<zav::AudioStreamOutputable> declaredByQueue(
    const std::shared_ptr<zav::RecordSource>& source) {
    zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (const zav::OSStatus status = zav::readAudioQueueProperty(
            source->audioQueueRef(), zav::kAudioQueueProperty_StreamDescription, format);
        status != zav::noErr) {
        throw SoundServerFailure(status);
    }
    return redeclared(source, format);
}

/// The library's own codec behind an aligner, so that every sample is encoded once; the last frame
/// is filled up with silence, so that nothing said is lost.
struct RecordingEncoder {
    std::shared_ptr<zav::AudioStreamOutputable> stream;
    std::string inWords;
};

RecordingEncoder makeEncoder(const RecordOptions& options, const Recording& recording,
                             const std::shared_ptr<zav::AudioStreamOutputable>& pcm) {
    const auto refuse = [&] {
        auto format = recording.captured;
        format.mFormatID = recording.codec;
        refuseFormat(options.output, format, wantedOf(recording.codec));
    };
    constexpr auto kPadded = zav::FrameAligner::AtFlowEnd::padWithSilence;
    if (recording.codec == zav::kAudioFormatSbc) {
        if (options.channels > 2 || !zav::SBCCoding::frequencyFromRawValue(options.rate)) {
            refuse();
        }
        const auto configuration =
            configurationFor(options.sbc, pcm->outDataFormat(), options.output);
        const auto aligner = zav::makeNode<zav::FrameAligner>(
            pcm, zav::FrameAligner::bytesPerSbcFrame(*configuration), kPadded);
        return {zav::makeNode<zav::SBCEncoder>(aligner, configuration),
                "FrameAligner -> SBCEncoder (" + std::string(nameOf(configuration->mode)) +
                    ", bitpool " + std::to_string(configuration->bitpool) + ")"};
    }
    const auto aligner = zav::makeNode<zav::FrameAligner>(
        pcm, zav::FrameAligner::bytesPerOpusPacket(pcm->outDataFormat()), kPadded);
    try {
        return {zav::makeNode<zav::OpusEncoder>(aligner), "FrameAligner -> OpusEncoder"};
    } catch (const zav::AudioStreamError&) {
        refuse();
    }
    return {};
}

/// Lets so many frames of PCM pass and no more: a queue captures a little past the moment when it
/// is stopped.
class FrameLimit : public Relay {
 public:
    FrameLimit(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
               std::shared_ptr<zav::PeripheralSource> next, std::uint64_t frameCount)
        : Relay(key, upstream, std::move(next)),
          bytesPerFrame_(inDataFormat().mBytesPerFrame),
          framesLeft_(frameCount) {}

    void receiveAudio(const void* bytes, std::uint64_t /*size*/, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* /*descriptions*/) override {
        const std::uint64_t passed = std::min(packetNum, framesLeft_);
        framesLeft_ -= passed;
        if (passed > 0) {
            Relay::receiveAudio(bytes, passed * bytesPerFrame_, passed, nullptr);
        }
    }

 private:
    std::uint32_t bytesPerFrame_;
    std::uint64_t framesLeft_;
};

std::shared_ptr<zav::AudioStreamOutputable> limited(
    const std::shared_ptr<zav::AudioStreamOutputable>& pcm, double seconds) {
    const auto next = zav::makeNode<zav::PeripheralSource>();
    next->setOutDataFormat(pcm->outDataFormat());
    zav::makeNode<FrameLimit>(
        pcm, next,
        static_cast<std::uint64_t>(std::llround(seconds * pcm->outDataFormat().mSampleRate)));
    return next;
}

/// Wakes the main thread when the flow has ended. Added to the source as its last target, so that
/// all others have seen the end.
class EndOfFlow : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void onAudioStreamFlowEnd() override {
        hasCome_ = true;
        MainThread::wake();
    }
    bool hasCome() const { return hasCome_; }

 private:
    std::atomic<bool> hasCome_ = false;
};

void start(zav::RecordSource& source) {
    try {
        source.record();
    } catch (const zav::AudioQueueError& error) {
        throw SoundServerFailure(error.status());
    }
}

}  // namespace

void record(const RecordOptions& options, const CommonOptions& common) {
    using Clock = MainThread::Clock;
    const Recording recording = recordingFor(options);
    const FileType& type = *recording.type;

    // Before anything has a thread: none else can be interrupted between the file and its removal.
    OutputFile output(options.output, {});
    reportFatalStopsFor("the microphone", options.output);

    // The graph: each node is made on the one before it.
    const auto source = openMicrophone(options, recording);
    std::shared_ptr<zav::AudioStreamOutputable> stream = source;
    std::string graph = "RecordSource (" + inWords(source->outDataFormat()) + ")";
    const bool isPcm = source->outDataFormat().mFormatID == zav::kAudioFormatLinearPCM;
    if (!isPcm) {
        stream = declaredByQueue(source);
        graph += " -> PeripheralSource";
    } else if (options.seconds) {
        stream = limited(stream, *options.seconds);
        graph += " -> PeripheralSource";
    }
    if (recording.isOwnCodec()) {
        RecordingEncoder encoding = makeEncoder(options, recording, stream);
        stream = std::move(encoding.stream);
        graph += " -> " + encoding.inWords;
    }
    if (type.id == kSbcContainerType && recording.codec == zav::kAudioFormatSbc) {
        stream = redeclared(stream, with16Bits(stream->outDataFormat()));
    }
    const std::vector<std::byte> cookie = source->magicCookie();
    output.requireRoomFor(type, stream->outDataFormat(), cookie);
    output.addSink(
        stream, type, cookie.empty() ? CookieReader() : [microphone = source.get()] {
            return microphone->magicCookie();
        });
    const auto fileCounter = zav::makeNode<StreamCounter>(stream);
    const StatusLine line(common.isQuiet);
    std::optional<LevelDisplay> level;
    if (line.isShown()) {
        level.emplace(source->audioQueueRef());
    }
    const auto end = zav::makeNode<EndOfFlow>(source);
    showGraph(common, graph + " -> " + std::string(nodeNameOf(type)));

    MainThread::catchSignals();
    start(*source);
    output.appear();
    const auto isOver = [&] {
        return end->hasCome() || MainThread::endingSignal() != 0 ||
               (options.seconds && source->timeStamp() >= *options.seconds);
    };
    while (!isOver()) {
        constexpr auto kUntilLater = std::chrono::hours(1);
        constexpr auto kStatusInterval = std::chrono::milliseconds(100);
        constexpr double kShortestWaitInSeconds = 0.01;
        auto wakeTime = Clock::now() + kUntilLater;
        if (line.isShown()) {
            wakeTime = Clock::now() + kStatusInterval;
        }
        if (options.seconds) {
            const double missing =
                std::clamp(*options.seconds - source->timeStamp(), kShortestWaitInSeconds, 3600.0);
            wakeTime =
                std::min(wakeTime, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                      std::chrono::duration<double>(missing)));
        }
        MainThread::sleepUntil(wakeTime);

        if (level) {
            std::vector<std::string> fields = level->fields();
            fields.insert(fields.begin(), clockText(source->timeStamp()));
            fields.push_back(countText(interruptionCount(source->audioQueueRef()), "overrun"));
            line.show(fields);
        }
    }
    const bool isDeviceLost = end->hasCome();
    const std::uint32_t overruns = interruptionCount(source->audioQueueRef());
    source->stop();
    while (!end->hasCome()) {
        MainThread::sleepUntil(Clock::now() + std::chrono::hours(1));
    }
    const double seconds = source->timeStamp();
    output.commit(fileCounter->packetCount(), fileCounter->byteCount());
    if (isDeviceLost) {
        throw Failure(options.output, "the sound server or its device went away; the " +
                                          secondsText(seconds) + " until then are in the file");
    }
    // What came too late for a file of PCM is not in it; an encoder has been given everything.
    const double recorded = isPcm ? std::min(seconds, options.seconds.value_or(seconds)) : seconds;
    line.finish(shown(options.output) + ": " + secondsText(recorded) + ", " +
                std::to_string((fileCounter->byteCount() + 1023) / 1024) + " KiB" +
                (level ? ", " + level->summary() : "") + ", " + countText(overruns, "overrun"));
}

}  // namespace zavtool
