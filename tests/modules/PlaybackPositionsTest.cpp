#include "ZAVAudioStreaming/modules/pulse/PlaybackPositions.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zav::test {
namespace {

using detail::PlaybackPositions;

/// One event or one expectation. The rate is 1000 Hz, so a frame is a millisecond.
struct Step {
    enum What {
        audio,    ///< `frames` of the client's audio are written
        silence,  ///< the server is at `server`; `frames` of silence are due, and written
        resume,   ///< playback goes on at `ms`
        taken,    ///< at `ms` the server has taken everything before `server`
        dry,      ///< the server has nothing behind `server`; reported as the client's `frames`
        expect,   ///< at `ms` the server is at `server`; `frames` of the client's have been played
        client,   ///< the server's position `server` is the client's `frames`
    };
    What what;
    std::uint64_t frames = 0;
    std::uint64_t server = 0;
    std::uint64_t ms = 0;
    bool isRefused = false;  ///< silence: none is due; dry: not reported
};

struct Case {
    const char* name;
    std::vector<Step> steps;
};

const std::vector<Case> kCases = {
    {"the last frame counts as played when the server has taken it and it has sounded",
     {{Step::audio, 100},
      {Step::expect, 40, 40, 1000},
      {Step::expect, 99, 100, 1060},
      {Step::expect, 99, 130, 1090},  // a late server's clock runs past the end
      {Step::taken, 0, 100, 1100},
      {Step::expect, 99, 100, 1100},
      {Step::expect, 100, 100, 1101}}},
    {"a clock that stops short of the end does not delay the last frames",
     {{Step::audio, 100},
      {Step::expect, 90, 90, 1000},
      {Step::taken, 0, 100, 1000},
      {Step::expect, 95, 90, 1005},
      {Step::expect, 100, 90, 1010}}},
    {"the position never goes back",
     {{Step::audio, 100}, {Step::expect, 60, 60, 1000}, {Step::expect, 60, 50, 1001}}},
    {"a pause stops the time in which the last frames sound",
     {{Step::audio, 100},
      {Step::expect, 80, 80, 1000},
      {Step::taken, 0, 100, 1000},
      {Step::expect, 90, 80, 1010},
      {Step::resume, 0, 0, 5000},
      {Step::expect, 90, 80, 5000},
      {Step::expect, 100, 80, 5010}}},
    {"silence does not count among the client's frames",
     {{Step::audio, 100},
      {Step::silence, 50, 100},
      {Step::audio, 30},
      {Step::client, 100, 100},
      {Step::client, 100, 120},
      {Step::client, 100, 150},
      {Step::client, 130, 180},
      {Step::expect, 110, 160, 1000}}},
    {"silence grows to the length of a block behind the audio that was taken",
     {{Step::audio, 100},
      {Step::silence, 30, 100},
      {Step::silence, 30, 100},
      {Step::silence, 0, 100, 0, true},
      {Step::taken, 0, 99, 1000},
      {Step::expect, 99, 160, 1000},
      {Step::taken, 0, 100, 1000},
      {Step::expect, 100, 160, 1001}}},
    {"a third piece waits until the first one has sounded, because positions depend on it",
     {{Step::audio, 10},
      {Step::silence, 50, 0},
      {Step::audio, 10},
      {Step::silence, 50, 0},
      {Step::audio, 10},
      {Step::silence, 0, 59, 0, true},
      {Step::silence, 50, 60},
      {Step::client, 20, 120},
      {Step::client, 30, 130},
      {Step::client, 30, 180}}},
    {"running dry is reported once at each position, but not behind inserted silence",
     {{Step::audio, 100},
      {Step::dry, 100, 100},
      {Step::dry, 0, 100, 0, true},
      {Step::silence, 50, 100},
      {Step::dry, 0, 150, 0, true},
      {Step::audio, 20},
      {Step::dry, 120, 170}}},
};

TEST(PlaybackPositions, countTheClientsFramesWhateverTheServerReports) {
    constexpr std::uint64_t kBlock = 50;
    constexpr std::uint64_t kMicroseconds = 1000;
    for (const Case& test : kCases) {
        PlaybackPositions positions(1000);
        for (std::size_t i = 0; i < test.steps.size(); ++i) {
            SCOPED_TRACE(std::string(test.name) + ", step " + std::to_string(i));
            const Step& step = test.steps[i];
            const std::uint64_t now = step.ms * kMicroseconds;
            switch (step.what) {
                case Step::audio:
                    positions.addAudio(step.frames);
                    break;
                case Step::silence:
                    EXPECT_EQ(positions.beginSilence(step.server, kBlock), !step.isRefused);
                    if (!step.isRefused) {
                        positions.expectDryBehindSilence();
                        positions.addSilence(step.frames);
                    }
                    break;
                case Step::resume:
                    positions.resume(now);
                    break;
                case Step::taken:
                    positions.noteTaken(step.server, now);
                    break;
                case Step::dry:
                    EXPECT_EQ(positions.noteDry(step.server),
                              step.isRefused ? std::nullopt : std::optional(step.frames));
                    break;
                case Step::expect:
                    EXPECT_EQ(positions.update(step.server, now), step.frames);
                    break;
                case Step::client:
                    EXPECT_EQ(positions.clientFrame(step.server), step.frames);
                    break;
            }
        }
    }
}

}  // namespace
}  // namespace zav::test
