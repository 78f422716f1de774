#include "LiveLoop.hpp"

#include <array>
#include <chrono>
#include <future>

namespace {

/// Audio that is queued before playing starts. A frame may be late by this much without a gap.
constexpr double kPlaybackDelayInSeconds = 0.2;
/// The sink enqueues a buffer when it is half full (16 ms). A buffer of the usual half second would
/// hold back the first quarter of a second.
constexpr std::uint32_t kPlaybackBufferSizeInBytes = 1024;

std::uint32_t interruptionCount(zav::AudioQueueRef queue) {
    std::uint32_t count = 0;
    if (const zav::OSStatus status =
            zav::readAudioQueueProperty(queue, zav::kAudioQueueProperty_InterruptionCount, count);
        status != zav::noErr) {
        throw zav::AudioQueueError::failure(status);
    }
    return count;
}

}  // namespace

LiveLoop::LiveLoop(const char* accessoryPath)
    : connection_(std::make_shared<Connection>(accessoryPath)),
      source_(zav::makeNode<zav::RecordSource>(zav::linearPcm(16000, 1))),
      fromAccessory_(zav::makeNode<zav::PeripheralSource>()) {
    const auto configuration = std::make_shared<zav::SBCCoding::SBCConfiguration>();
    const auto aligner = zav::makeNode<zav::FrameAligner>(
        source_, zav::FrameAligner::bytesPerSbcFrame(*configuration));
    const auto encoder = zav::makeNode<zav::SBCEncoder>(aligner, configuration);
    toAccessory_ = zav::makeNode<ToAccessory>(encoder, connection_);

    fromAccessory_->setOutDataFormat(encoder->outDataFormat());
    const auto decoder = zav::makeNode<zav::SBCDecoder>(fromAccessory_);
    sink_ = zav::makeNode<zav::PlaybackSink>(decoder);
    sink_->setQueueBufferSize(kPlaybackBufferSizeInBytes);
    sink_->autoPlay(kPlaybackDelayInSeconds);
}

LiveLoop::~LiveLoop() {
    connection_->end();
}

void LiveLoop::start() {
    source_->record();
    receiver_ = std::jthread([this] { playWhatComesBack(); });
}

bool LiveLoop::isWhole() const {
    const bool waitsToPlay = sink_->delayPlaySchedule().has_value();
    return source_->isRecording() && isConnected_ && (waitsToPlay || sink_->isPlaying());
}

LiveLoop::Figures LiveLoop::finish() {
    Figures figures;
    figures.recordInterruptions = interruptionCount(source_->audioQueueRef());
    figures.playInterruptions = interruptionCount(sink_->audioQueueRef());

    // The stop hands over the last audio. Then the completion runs, on the queue's thread.
    const auto ended = std::make_shared<std::promise<void>>();
    source_->stop([ended] { ended->set_value(); });
    ended->get_future().wait();
    connection_->endSending();
    receiver_.join();
    while (sink_->isPlaying()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    figures.sentCount = toAccessory_->sentCount;
    figures.lostCount = toAccessory_->lostCount;
    figures.returnedCount = returnedCount_;
    return figures;
}

void LiveLoop::playWhatComesBack() {
    std::array<std::byte, 512> packet{};
    const std::size_t frameSize = fromAccessory_->outDataFormat().mBytesPerPacket;
    fromAccessory_->downstreams().onAudioStreamFlowStart();
    while (const std::size_t size = connection_->receive(packet)) {
        if (size == frameSize) {  // the decoder ends the process at any other size
            ++returnedCount_;
            fromAccessory_->downstreams().receiveAudio(packet.data(), size, 1, nullptr);
        }
    }
    isConnected_ = false;
    fromAccessory_->downstreams().onAudioStreamFlowEnd();
}
