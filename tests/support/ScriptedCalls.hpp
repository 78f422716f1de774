#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/OSStatus.hpp"

namespace zav::test {

/// What the scripted services have in common: every call is noted, and fails on demand.
struct ScriptedCalls {
    /// Statuses to answer with, by the first words of the call; what is not here succeeds.
    std::map<std::string, OSStatus> failures;
    /// What was called, with those arguments that matter.
    std::vector<std::string> calls;
    /// A property that is not here cannot be asked for.
    std::map<std::uint32_t, std::vector<std::byte>> properties;

    OSStatus note(const std::string& call, const std::string& arguments = "") {
        calls.push_back(call + arguments);
        const auto failure = failures.find(call);
        return failure == failures.end() ? noErr : failure->second;
    }

    template <class Value>
    void setProperty(std::uint32_t property, const Value& value) {
        const auto bytes = std::as_bytes(std::span(&value, 1));
        properties[property] = {bytes.begin(), bytes.end()};
    }
    OSStatus propertySize(std::uint32_t property, std::uint32_t& size) const {
        const auto found = properties.find(property);
        size = found == properties.end() ? 0 : static_cast<std::uint32_t>(found->second.size());
        return found == properties.end() ? -1 : noErr;
    }
    OSStatus readProperty(std::uint32_t property, void* value) const {
        const auto found = properties.find(property);
        if (found == properties.end()) {
            return -1;
        }
        std::ranges::copy(found->second, static_cast<std::byte*>(value));
        return noErr;
    }
};

}  // namespace zav::test
