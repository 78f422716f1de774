#pragma once

#include <functional>
#include <stdexcept>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A node's constructor throws this error if the node cannot use the format of its upstream.
/// Nothing has been registered with the upstream then.
class ZAV_EXPORT AudioStreamError : public std::runtime_error {
 public:
    enum class Code { unacceptableData };

    static AudioStreamError unacceptableData();

    Code code() const noexcept { return code_; }

    friend bool operator==(const AudioStreamError& left, const AudioStreamError& right) noexcept {
        return left.code_ == right.code_;
    }

 private:
    AudioStreamError(Code code, const char* name) : std::runtime_error(name), code_(code) {}

    Code code_;
};

}  // namespace zav

template <>
struct std::hash<zav::AudioStreamError> {
    std::size_t operator()(const zav::AudioStreamError& error) const noexcept {
        return std::hash<zav::AudioStreamError::Code>{}(error.code());
    }
};
