#include "PlayCommand.hpp"

#include <ZAVAudioStreaming/core/AudioQueueError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/AudioDevices.hpp>
#include <ZAVAudioStreaming/platform/OwnedAudioQueue.hpp>
#include <ZAVAudioStreaming/sinks/PlaybackSink.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "Decoding.hpp"
#include "Failure.hpp"
#include "FormatText.hpp"
#include "Input.hpp"
#include "LevelDisplay.hpp"
#include "LiveAudio.hpp"
#include "MainThread.hpp"
#include "PacketGatherer.hpp"
#include "StatusLine.hpp"

namespace zavtool {
namespace {

using Clock = MainThread::Clock;

/// A long chunk saves work: three threads wake for each buffer that has been played.
constexpr double kChunkInSeconds = 1;
constexpr double kQueuedInSeconds = 2;
/// The sink enqueues a buffer when it is half full.
constexpr double kBufferInSeconds = 2 * kChunkInSeconds;

/// The stream for the queue: PCM of the library's decoders, or the file's own packets.
Decoding streamOf(const Input& input, const std::filesystem::path& path) {
    switch (input.format().mFormatID) {
        case zav::kAudioFormatSbc:
            return makeSbcDecoder(input, path, false);
        case zav::kAudioFormatOpus:
            return makeOpusDecoder(input, path);
        default:
            return {input.node(), ""};
    }
}

/// Bytes per second of a stream whose packets have one size; 0 for other streams.
double bytesPerSecond(const zav::AudioStreamBasicDescription& format) {
    if (format.mFormatID == zav::kAudioFormatLinearPCM) {
        return format.mSampleRate * format.mBytesPerFrame;
    }
    return format.mFramesPerPacket == 0
               ? 0
               : format.mSampleRate / format.mFramesPerPacket * format.mBytesPerPacket;
}

/// The size of a queue buffer in bytes, with room for two chunks and at least two packets.
std::uint32_t bufferSizeFor(const zav::AudioStreamBasicDescription& format, const Input& input,
                            const std::filesystem::path& path) {
    constexpr double kSmallest = 4096;
    constexpr double kLargestOfUnknown = 1 << 20;
    double size = kBufferInSeconds * bytesPerSecond(format);
    if (size == 0) {
        const double seconds = std::max(input.durationInSeconds(), 1.0);
        size = std::min(
            kBufferInSeconds * static_cast<double>(std::filesystem::file_size(path)) / seconds,
            kLargestOfUnknown);
    }
    // A chunk fills half a buffer, so each half holds whole frames.
    const std::uint32_t bytesPerFrame = std::max(1U, format.mBytesPerFrame);
    const auto whole = static_cast<std::uint32_t>(std::max(size, kSmallest));
    return std::max(whole - whole % (2 * bytesPerFrame), 2 * input.packetSizeUpperBound());
}

/// The number of packets in a chunk. 1 if the sink cannot separate the packets of a chunk.
std::int64_t packetsPerChunk(const Input& input) {
    const zav::AudioStreamBasicDescription format = input.format();
    if (!input.describesPackets() || format.mFramesPerPacket == 0) {
        return 1;
    }
    return std::max<std::int64_t>(
        1, std::llround(kChunkInSeconds * format.mSampleRate / format.mFramesPerPacket));
}

std::shared_ptr<zav::PlaybackSink> openLoudspeaker(
    const std::shared_ptr<zav::AudioStreamOutputable>& stream, const Input& input,
    const std::filesystem::path& path) {
    std::shared_ptr<zav::PlaybackSink> sink;
    try {
        sink = zav::makeNode<zav::PlaybackSink>(stream);
    } catch (const zav::AudioQueueError& error) {
        if (error.status() == zav::kAudioFormatUnsupportedDataFormatError) {
            refuseFormat(path, stream->outDataFormat(),
                         "audio of 8000 to 192000 Hz with 1 to 8 channels");
        }
        throw SoundServerFailure(error.status());
    }
    const bool isDecodedByQueue = stream->outDataFormat().mFormatID != zav::kAudioFormatLinearPCM;
    const auto cookie = input.magicCookie();
    if (isDecodedByQueue && cookie && !cookie->empty() &&
        zav::AudioQueueSetProperty(sink->audioQueueRef(), zav::kAudioQueueProperty_MagicCookie,
                                   cookie->data(),
                                   static_cast<std::uint32_t>(cookie->size())) != zav::noErr) {
        throw Failure(path,
                      "a magic cookie that its decoder does not take; use a file that is whole");
    }
    return sink;
}

/// Plays one file. The main thread pushes audio whenever a buffer has been played. About two
/// seconds of audio wait in the queue.
class Player {
 public:
    Player(const PlayOptions& options, const CommonOptions& common)
        : options_(options), line_(common.isQuiet), input_(openInput(options.input)) {
        Decoding decoding = streamOf(*input_, options.input);
        format_ = decoding.pcm->outDataFormat();
        const std::uint32_t bufferSize = bufferSizeFor(format_, *input_, options.input);
        const auto fed = zav::makeNode<zav::PeripheralSource>();
        fed->setOutDataFormat(format_);
        gatherer_ = zav::makeNode<PacketGatherer>(decoding.pcm, fed, bufferSize);
        sink_ = openLoudspeaker(fed, *input_, options.input);
        sink_->setQueueBufferSize(bufferSize);
        sink_->setAudioDataAcquireHandler(MainThread::wake);
        pushed_ = zav::makeNode<StreamCounter>(fed);
        if (line_.isShown()) {
            level_.emplace(sink_->audioQueueRef());
        }
        showGraph(common, input_->nodeName() + " (" + inWords(input_->format()) + ") -> " +
                              (decoding.inWords.empty() ? "" : decoding.inWords + " -> ") +
                              "PlaybackSink (" + inWords(format_) + ")");
    }

    void play() {
        start();
        while (MainThread::endingSignal() == 0 && sink_->isPlaying()) {
            feed();
            showStatus();
            MainThread::sleepUntil(Clock::now() + untilNextLook());
        }
        if (MainThread::endingSignal() != 0) {
            sink_->stop();
            finishLine();
            MainThread::endBySignal();
        }
        if (!wasAllPlayed()) {
            reportLoss();
        }
        finishLine();
    }

 private:
    bool isPcm() const { return bytesPerSecond(format_) > 0; }
    double pushedSeconds() const {
        return isPcm() ? static_cast<double>(pushed_->byteCount()) / bytesPerSecond(format_)
                       : input_->progress() * input_->durationInSeconds();
    }
    double queuedSeconds() const { return std::max(0.0, pushedSeconds() - sink_->timeStamp()); }

    void start() {
        if (options_.delayInSeconds) {
            sink_->autoPlay(*options_.delayInSeconds);
            feed();
            if (sink_->isPlaying() || isFinished_) {
                return;
            }
        }
        feed();
        // `autoPlay` does not report why a queue could not start. `play` throws the reason.
        try {
            sink_->play();
        } catch (const zav::AudioQueueError& error) {
            throw SoundServerFailure(error.status());
        }
        finishWhenDue();
    }

    /// Pushes until the queue has enough, and ends the flow when the file has ended.
    void feed() {
        const double wanted =
            std::max(kQueuedInSeconds, options_.delayInSeconds.value_or(0) + 2 * kChunkInSeconds);
        const auto wantedBuffers = static_cast<std::size_t>(std::ceil(wanted / kChunkInSeconds));
        while (!gatherer_->hasEnded() &&
               sink_->allocatedBufferCount() - sink_->idleBufferCount() < wantedBuffers) {
            input_->pushPackets(packetsPerChunk(*input_));
        }
        if (sink_->isPlaying() || sink_->delayPlaySchedule()) {
            finishWhenDue();
        }
    }

    void finishWhenDue() {
        if (gatherer_->hasEnded() && !std::exchange(isFinished_, true)) {
            gatherer_->finish(*sink_);
        }
    }

    /// Returns the time until the next look at the queue. No callback reports that a queue has
    /// stopped, either at its end or because it lost its device.
    std::chrono::nanoseconds untilNextLook() const {
        constexpr double kShortest = 0.02;
        constexpr double kLongest = 1;
        constexpr double kStatusInterval = 0.1;
        double seconds = line_.isShown() ? kStatusInterval : kLongest;
        if (isFinished_) {
            seconds = std::clamp(isPcm() ? queuedSeconds() : kStatusInterval, kShortest, seconds);
        }
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(seconds));
    }

    bool wasAllPlayed() const { return isFinished_ && sink_->hasPlayedAll(); }

    [[noreturn]] void reportLoss() const {
        // `autoPlay` does not report that the queue could not start.
        if (sink_->timeStamp() == 0) {
            zav::AudioDeviceList list;
            if (const zav::OSStatus status = zav::listAudioDevices(list); status != zav::noErr) {
                throw SoundServerFailure(status);
            }
        }
        throw Failure(options_.input, "the sound server or its device went away after " +
                                          secondsText(sink_->timeStamp()) +
                                          "; use one that keeps running");
    }

    void showStatus() {
        if (!level_) {
            return;
        }
        const double elapsed = sink_->timeStamp();
        std::vector<std::string> fields = {clockText(elapsed) + " / " +
                                           clockText(input_->durationInSeconds())};
        for (std::string& field : level_->fields()) {
            fields.push_back(std::move(field));
        }
        fields.push_back(countText(interruptionCount(sink_->audioQueueRef()), "underrun"));
        std::array<char, 32> queued{};
        std::snprintf(queued.data(), queued.size(), "%.1f s queued", queuedSeconds());
        fields.emplace_back(queued.data());
        line_.show(fields);
    }

    void finishLine() {
        line_.finish(shown(options_.input) + ": " + secondsText(sink_->timeStamp()) +
                     (level_ ? ", " + level_->summary() : "") + ", " +
                     countText(interruptionCount(sink_->audioQueueRef()), "underrun"));
    }

    PlayOptions options_;
    StatusLine line_;
    std::unique_ptr<Input> input_;
    zav::AudioStreamBasicDescription format_;
    std::shared_ptr<PacketGatherer> gatherer_;
    std::shared_ptr<zav::PlaybackSink> sink_;
    std::shared_ptr<StreamCounter> pushed_;
    std::optional<LevelDisplay> level_;  // empty if the line is not shown
    bool isFinished_ = false;
};

}  // namespace

void play(const PlayOptions& options, const CommonOptions& common) {
    reportFatalStopsFor(options.input, "the loudspeaker");
    Player player(options, common);
    MainThread::catchSignals();
    player.play();
}

}  // namespace zavtool
