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
/// The audio queue's thread pushes what was captured, a thread of this class what came back.
///
/// Threads: one at a time.
class LiveLoop {
 public:
    struct Figures {
        std::uint64_t sentCount = 0;
        std::uint64_t lostCount = 0;  ///< frames that the link had no room for
        std::uint64_t returnedCount = 0;
        std::uint32_t recordInterruptions = 0;
        std::uint32_t playInterruptions = 0;
    };

    /// Connects to the accessory and makes the graphs. Throws std::system_error when there is no
    /// accessory, zav::AudioQueueError when a queue cannot be made.
    explicit LiveLoop(const char* accessoryPath);
    ~LiveLoop();
    LiveLoop(const LiveLoop&) = delete;
    LiveLoop& operator=(const LiveLoop&) = delete;

    /// Throws zav::AudioQueueError when there is no sound server. Once.
    void start();

    /// Whether audio can flow: it is recorded, the accessory is there, and it is played once there
    /// is enough.
    bool isWhole() const;

    /// Ends the recording, and returns when all that was captured has been heard.
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
    std::jthread receiver_;  // last, so that it ends first
};
