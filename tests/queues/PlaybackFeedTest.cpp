#include "ZAVAudioStreaming/queues/PlaybackFeed.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/Formats.hpp"
#include "tests/support/Ramp.hpp"

namespace zav::test {
namespace {

using detail::PlaybackFeed;

constexpr std::size_t kPlaybackFeedFrameSize = 4;
constexpr std::size_t kPlayedBytes = 100000 * kPlaybackFeedFrameSize;

/// A device that pulls in pieces of every size, and has played what it pulled before.
void pullAll(PlaybackFeed& feed) {
    std::mt19937 random(1);
    std::vector<std::byte> room(400 * kPlaybackFeedFrameSize);
    for (std::size_t pulled = 0; pulled < kPlayedBytes;) {
        const std::size_t played = pulled / kPlaybackFeedFrameSize;
        const std::size_t size =
            feed.pull(std::span(room).first((1 + random() % 400) * kPlaybackFeedFrameSize));
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(room[i], rampByte(pulled + i)) << pulled + i;
        }
        pulled += size;
        ASSERT_GT(feed.mark(), feed.playedFrames());
        feed.played(played);
        if (size == 0) {
            std::this_thread::yield();
        }
    }
    feed.played(kPlayedBytes / kPlaybackFeedFrameSize);
}

// The feed reads borrowed bytes in place, and frees what it owns: ThreadSanitizer sees a byte that
// is overwritten, or a piece that is freed, while the device still reads it.
TEST(PlaybackFeed, playsEveryByteOnceFromOneThreadToAnother) {
    struct Borrowed {
        std::vector<std::byte> bytes;
        std::uint64_t endFrame = 0;
    };
    std::atomic<std::uint64_t> wakeUps = 0;
    PlaybackFeed feed(pcmFormat(48000, 2), [&] { ++wakeUps; });
    std::thread device([&] { pullAll(feed); });

    std::mt19937 random(2);
    std::deque<Borrowed> borrowed;
    for (std::size_t appended = 0; appended < kPlayedBytes;) {
        // Pieces begin and end anywhere in a frame.
        std::vector<std::byte> piece(
            std::min<std::size_t>(1 + random() % 3000, kPlayedBytes - appended));
        for (std::size_t i = 0; i < piece.size(); ++i) {
            piece[i] = rampByte(appended + i);
        }
        appended += piece.size();
        if (random() % 2 == 0) {
            feed.append(std::move(piece));
        } else {
            borrowed.push_back({std::move(piece)});
            borrowed.back().endFrame =
                feed.append(std::span<const std::byte>(borrowed.back().bytes));
        }
        while (!borrowed.empty() && borrowed.front().endFrame <= feed.playedFrames()) {
            std::fill(borrowed.front().bytes.begin(), borrowed.front().bytes.end(),
                      std::byte{0xAA});
            borrowed.pop_front();
        }
        feed.dropPlayed();
    }
    device.join();
    EXPECT_TRUE(feed.isPlayedOut());
    EXPECT_EQ(feed.mark(), PlaybackFeed::kNoMark);
    EXPECT_GT(wakeUps, 0U);
}

}  // namespace
}  // namespace zav::test
