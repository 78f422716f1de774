#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AudioWorld.hpp"

/// The worlds that a test program runs the contract in: each program links its own.
namespace zav::test {

enum class WorldKind { virtualDevice, pulseAudio, pipeWire };

inline std::string nameOf(WorldKind kind) {
    switch (kind) {
        case WorldKind::virtualDevice:
            return "virtualDevice";
        case WorldKind::pulseAudio:
            return "pulseAudio";
        default:
            return "pipeWire";
    }
}

std::vector<WorldKind> worldKinds();
/// Throws std::runtime_error when its server does not come up.
std::unique_ptr<AudioWorld> makeWorld(WorldKind kind);

}  // namespace zav::test
