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
#include <utility>

#include "Container.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "LevelDisplay.hpp"
#include "LiveAudio.hpp"
#include "MainThread.hpp"
#include "OutputFile.hpp"
#include "RecordingPlan.hpp"
#include "StatusLine.hpp"

namespace zavtool {
namespace {

using Clock = MainThread::Clock;
using Stream = std::shared_ptr<zav::AudioStreamOutputable>;

/// Whether a `RecordSource` can capture this format. A source's buffer has room for one packet of
/// the largest size for each frame of half a second. The source ends the process if this buffer
/// would exceed 4 GiB.
bool fitsRecordSource(const zav::AudioStreamBasicDescription& format) {
    zav::AudioQueueRef made = nullptr;
    constexpr auto kOnBuffer = [](void*, zav::AudioQueueRef, zav::AudioQueueBufferRef,
                                  const zav::AudioTimeStamp*, std::uint32_t,
                                  const zav::AudioStreamPacketDescription*) {};
    if (zav::AudioQueueNewInput(&format, kOnBuffer, nullptr, nullptr, nullptr, 0, &made) !=
        zav::noErr) {
        return true;  // the source fails in the same way and gives the reason
    }
    const zav::OwnedAudioQueue queue(made);
    std::uint32_t packetSize = 0;
    return zav::readAudioQueueProperty(made, zav::kAudioQueueProperty_MaximumOutputPacketSize,
                                       packetSize) != zav::noErr ||
           format.mSampleRate / 2 * packetSize <= std::numeric_limits<std::uint32_t>::max();
}

std::shared_ptr<zav::RecordSource> openMicrophone(const RecordOptions& options,
                                                  const RecordingPlan& plan) {
    if (!fitsRecordSource(plan.captured)) {
        refuseFormat(options.output, plan.captured,
                     "fewer --channels or a lower --rate for packets of this size");
    }
    try {
        return zav::makeNode<zav::RecordSource>(plan.captured);
    } catch (const zav::AudioQueueError& error) {
        if (error.status() == zav::kAudioFormatUnsupportedDataFormatError) {
            refuseFormat(options.output, plan.captured, recordableWith(plan.codec));
        }
        throw SoundServerFailure(error.status());
    }
}

/// Returns the stream in the format of the queue's encoder. The source declares the format that its
/// constructor received. That format lacks the frames per packet, and a file needs the frames per
/// packet to know its duration.
Stream declaredByQueue(const std::shared_ptr<zav::RecordSource>& source) {
    zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (const zav::OSStatus status = zav::readAudioQueueProperty(
            source->audioQueueRef(), zav::kAudioQueueProperty_StreamDescription, format);
        status != zav::noErr) {
        throw SoundServerFailure(status);
    }
    return redeclared(source, format);
}

/// Passes on the first `frameCount` frames of PCM and drops the rest. A queue still captures a
/// little audio after the moment when it is stopped.
class FrameLimit : public Relay {
 public:
    FrameLimit(zav::NodeKey key, const Stream& upstream,
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

Stream limited(const Stream& pcm, double seconds) {
    const auto next = zav::makeNode<zav::PeripheralSource>();
    next->setOutDataFormat(pcm->outDataFormat());
    zav::makeNode<FrameLimit>(
        pcm, next,
        static_cast<std::uint64_t>(std::llround(seconds * pcm->outDataFormat().mSampleRate)));
    return next;
}

/// The nodes from the microphone to the stream that the file receives.
struct Graph {
    std::shared_ptr<zav::RecordSource> source;
    Stream stream;
    std::string inWords;  ///< for --verbose

    void append(Stream next, const std::string& nodes) {
        stream = std::move(next);
        inWords += " -> " + nodes;
    }
};

/// Adds the library's own encoder and an aligner before the encoder. With the aligner, each sample
/// is encoded exactly once. The aligner also fills the last frame with silence, so no audio is left
/// out.
void addEncoder(Graph& graph, const RecordOptions& options, const RecordingPlan& plan) {
    const auto refuse = [&] {
        auto format = plan.captured;
        format.mFormatID = plan.codec;
        refuseFormat(options.output, format, recordableWith(plan.codec));
    };
    constexpr auto kPadded = zav::FrameAligner::AtFlowEnd::padWithSilence;
    if (plan.codec == zav::kAudioFormatSbc) {
        if (options.channels > 2 || !zav::SBCCoding::frequencyFromRawValue(options.rate)) {
            refuse();
        }
        const auto configuration =
            configurationFor(options.sbc, graph.stream->outDataFormat(), options.output);
        const auto aligner = zav::makeNode<zav::FrameAligner>(
            graph.stream, zav::FrameAligner::bytesPerSbcFrame(*configuration), kPadded);
        graph.append(zav::makeNode<zav::SBCEncoder>(aligner, configuration),
                     "FrameAligner -> SBCEncoder (" + std::string(nameOf(configuration->mode)) +
                         ", bitpool " + std::to_string(configuration->bitpool) + ")");
        return;
    }
    const auto aligner = zav::makeNode<zav::FrameAligner>(
        graph.stream, zav::FrameAligner::bytesPerOpusPacket(graph.stream->outDataFormat()),
        kPadded);
    try {
        graph.append(zav::makeNode<zav::OpusEncoder>(aligner), "FrameAligner -> OpusEncoder");
    } catch (const zav::AudioStreamError&) {
        refuse();
    }
}

/// Each node is made on the previous node.
Graph makeGraph(const RecordOptions& options, const RecordingPlan& plan) {
    const auto source = openMicrophone(options, plan);
    Graph graph{source, source, "RecordSource (" + inWords(source->outDataFormat()) + ")"};
    if (source->outDataFormat().mFormatID != zav::kAudioFormatLinearPCM) {
        graph.append(declaredByQueue(source), "PeripheralSource");
    } else if (options.seconds) {
        graph.append(limited(source, *options.seconds), "PeripheralSource");
    }
    if (plan.usesEncoderNode()) {
        addEncoder(graph, options, plan);
    }
    if (plan.type->id == kSbcContainerType && plan.codec == zav::kAudioFormatSbc) {
        graph.stream = redeclared(graph.stream, with16Bits(graph.stream->outDataFormat()));
    }
    return graph;
}

/// Wakes the main thread when the flow has ended. This sink is the last target of the source, so
/// all other targets have already received the end.
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

/// One recording. The audio queue's thread writes the file; the main thread waits for the end and
/// shows the status line.
class Recorder {
 public:
    Recorder(const RecordOptions& options, const CommonOptions& common)
        : options_(options),
          plan_(recordingPlanFor(options)),
          // Made before any other thread runs, because a signal handler removes the file.
          output_(options.output, {}),
          line_(common.isQuiet) {
        reportFatalStopsFor("the microphone", options.output);
        graph_ = makeGraph(options, plan_);
        addSink();
        if (line_.isShown()) {
            level_.emplace(source().audioQueueRef());
        }
        end_ = zav::makeNode<EndOfFlow>(graph_.source);
        showGraph(common, graph_.inWords + " -> " + std::string(nodeNameOf(*plan_.type)));
    }

    void record() {
        start();
        while (!isOver()) {
            MainThread::sleepUntil(nextWakeTime());
            showStatus();
        }
        finish();
    }

 private:
    zav::RecordSource& source() const { return *graph_.source; }

    void addSink() {
        const std::vector<std::byte> cookie = source().magicCookie();
        output_.requireRoomFor(*plan_.type, graph_.stream->outDataFormat(), cookie);
        output_.addSink(
            graph_.stream, *plan_.type, cookie.empty() ? CookieReader() : [microphone = &source()] {
                return microphone->magicCookie();
            });
        written_ = zav::makeNode<StreamCounter>(graph_.stream);
    }

    void start() {
        try {
            source().record();
        } catch (const zav::AudioQueueError& error) {
            throw SoundServerFailure(error.status());
        }
        output_.appear();
    }

    bool isOver() const {
        return end_->hasCome() || MainThread::endingSignal() != 0 ||
               (options_.seconds && source().timeStamp() >= *options_.seconds);
    }

    Clock::time_point nextWakeTime() const {
        constexpr auto kStatusInterval = std::chrono::milliseconds(100);
        constexpr double kShortestWaitInSeconds = 0.01;
        constexpr double kLongestWaitInSeconds = 3600;
        const auto now = Clock::now();
        auto wakeTime = line_.isShown() ? now + kStatusInterval : now + std::chrono::hours(1);
        if (options_.seconds) {
            const double missing = std::clamp(*options_.seconds - source().timeStamp(),
                                              kShortestWaitInSeconds, kLongestWaitInSeconds);
            wakeTime = std::min(wakeTime, now + std::chrono::duration_cast<Clock::duration>(
                                                    std::chrono::duration<double>(missing)));
        }
        return wakeTime;
    }

    std::string overrunsText() const {
        return countText(interruptionCount(source().audioQueueRef()), "overrun");
    }

    void showStatus() {
        if (!level_) {
            return;
        }
        std::vector<std::string> fields = level_->fields();
        fields.insert(fields.begin(), clockText(source().timeStamp()));
        fields.push_back(overrunsText());
        line_.show(fields);
    }

    /// Returns when the file is complete: the queue's thread ends the flow after the last audio.
    void stop() {
        source().stop();
        while (!end_->hasCome()) {
            MainThread::sleepUntil(Clock::now() + std::chrono::hours(1));
        }
    }

    void finish() {
        const bool isDeviceLost = end_->hasCome();
        const std::string overruns = overrunsText();  // before the stop can cause another overrun
        stop();
        output_.commit(written_->packetCount(), written_->byteCount());
        if (isDeviceLost) {
            throw Failure(options_.output, "the sound server or its device went away; the " +
                                               secondsText(source().timeStamp()) +
                                               " until then are in the file");
        }
        line_.finish(shown(options_.output) + ": " + secondsText(recordedSeconds()) + ", " +
                     std::to_string((written_->byteCount() + 1023) / 1024) + " KiB" +
                     (level_ ? ", " + level_->summary() : "") + ", " + overruns);
    }

    /// Seconds of audio in the file. `limited` cuts captured PCM at the requested length. Packets
    /// of the queue's encoder are not cut.
    double recordedSeconds() const {
        const double seconds = source().timeStamp();
        const bool isPcm = plan_.captured.mFormatID == zav::kAudioFormatLinearPCM;
        return isPcm ? std::min(seconds, options_.seconds.value_or(seconds)) : seconds;
    }

    RecordOptions options_;
    RecordingPlan plan_;
    OutputFile output_;
    StatusLine line_;
    Graph graph_;
    std::shared_ptr<StreamCounter> written_;
    std::optional<LevelDisplay> level_;  // empty if the line is not shown
    std::shared_ptr<EndOfFlow> end_;
};

}  // namespace

void record(const RecordOptions& options, const CommonOptions& common) {
    Recorder recorder(options, common);
    MainThread::catchSignals();
    recorder.record();
}

}  // namespace zavtool
