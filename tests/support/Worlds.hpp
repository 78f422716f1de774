#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The worlds that a test program runs the contract in: each program links its own.
namespace zav::test {

/// Where the contract of audio queues is tested: a device, what can be heard of it and said into
/// it, and its time. Output is 16 bits, 48 kHz, stereo; input 16 bits, 48 kHz, mono.
class AudioWorld {
 public:
    virtual ~AudioWorld() = default;

    /// Lets time pass until `isDone` says so. False when it does not within a generous limit.
    virtual bool until(const std::function<bool()>& isDone) = 0;
    /// Lets this much time pass, to see that nothing happens in it.
    virtual void pass(double seconds) = 0;

    /// The samples that were heard so far, without silence (samples of 0).
    virtual std::vector<std::int16_t> heard() = 0;
    /// Says samples into the microphone from now on, silence before and after them.
    virtual void say(std::vector<std::int16_t> samples) = 0;
    /// All of what was said last has been.
    virtual bool hasSaidAll() = 0;

    /// The device goes away, and comes back.
    virtual void lose() = 0;
    virtual void bringBack() = 0;
};

/// By their names: "virtual", or the sound server's.
std::vector<std::string> worldNames();
/// Throws std::runtime_error when its server does not come up.
std::unique_ptr<AudioWorld> makeWorld(const std::string& name);

}  // namespace zav::test
