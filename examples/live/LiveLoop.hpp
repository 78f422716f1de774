#pragma once

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "Connection.hpp"
#include "ToAccessory.hpp"

/// Both graphs, for as long as the sound server lives:
///
///     RecordSource -> FrameAligner -> SBCEncoder -> ToAccessory
///     PeripheralSource -> SBCDecoder -> PlaybackSink
///
/// The audio queue's thread pushes captured audio. A thread of this class pushes returning audio.
///
/// Threads: call it from one thread at a time.
class LiveLoop {
 public:
    struct Figures {
        std::uint64_t sentCount = 0;
        std::uint64_t lostCount = 0;  ///< frames that the link had no room for
        std::uint64_t returnedCount = 0;
        std::uint32_t recordInterruptions = 0;
        std::uint32_t playInterruptions = 0;
    };

    /// Connects to the accessory and makes the graphs. Throws std::system_error if no accessory
    /// listens. Throws zav::AudioQueueError if a queue cannot be made.
    explicit LiveLoop(const char* accessoryPath);
    ~LiveLoop();
    LiveLoop(const LiveLoop&) = delete;
    LiveLoop& operator=(const LiveLoop&) = delete;

    /// Starts recording. Call it once. Throws zav::AudioQueueError if no sound server answers.
    void start();

    /// Whether audio can flow: the source records, the accessory is connected, and the sink plays
    /// or waits for enough audio.
    bool isWhole() const;

    /// Ends the recording. Returns after all captured audio has been played.
    Figures finish();

 private:
    void playWhatComesBack();

    std::uint64_t returnedCount_ = 0;
    std::atomic<bool> isConnected_ = true;
    std::shared_ptr<Connection> connection_;
    std::shared_ptr<zav::RecordSource> source_;
    std::shared_ptr<ToAccessory> toAccessory_;
    std::shared_ptr<zav::PeripheralSource> fromAccessory_;
    std::shared_ptr<zav::PlaybackSink> sink_;
    std::jthread receiver_;  // the last member, so that it is destroyed first
};
