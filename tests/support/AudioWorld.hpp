#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

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

/// Sample i of all tests' audio: never silence, and no two near each other are the same.
inline std::int16_t rampSample(std::size_t index) {
    return static_cast<std::int16_t>(1 + index % 30000);
}

inline std::vector<std::int16_t> rampSamples(std::size_t count, std::size_t first = 0) {
    std::vector<std::int16_t> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = rampSample(first + i);
    }
    return samples;
}

}  // namespace zav::test
