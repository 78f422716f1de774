#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The worlds in which a test program checks the contract of audio queues. Each program links its
/// own `worldNames` and `makeWorld`.
namespace zav::test {

/// A device with its loudspeaker, its microphone and its time. It plays 16-bit stereo and captures
/// 16-bit mono, both at 48 kHz.
///
/// Threads: the test's.
class AudioWorld {
 public:
    virtual ~AudioWorld() = default;

    /// Lets time pass until `isDone` returns true. Returns false if that takes longer than
    /// `kWaitLimit`.
    virtual bool until(const std::function<bool()>& isDone) = 0;
    /// Lets this much time pass.
    virtual void pass(double seconds) = 0;

    /// The samples that have been played so far, without silence (samples of 0).
    virtual std::vector<std::int16_t> heard() = 0;
    /// Plays samples into the microphone from now on. Silence precedes and follows them.
    virtual void say(std::vector<std::int16_t> samples) = 0;
    /// Returns true after the last sample of the last `say`.
    virtual bool hasSaidAll() = 0;

    /// Takes the device away.
    virtual void lose() = 0;
    virtual void bringBack() = 0;
};

/// "virtual", or the kinds of sound server.
std::vector<std::string> worldNames();
/// Throws std::runtime_error if the sound server does not start.
std::unique_ptr<AudioWorld> makeWorld(const std::string& name);

}  // namespace zav::test
