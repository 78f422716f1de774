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

/// The base of the scripted services: notes every call, and fails it on demand.
struct ScriptedCalls {
    /// The status of each call that fails, by the call's name without its arguments.
    std::map<std::string, OSStatus> failures;
    /// All calls in their order, with the arguments that matter.
    std::vector<std::string> calls;
    /// The properties of the service. To ask for any other one fails.
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
