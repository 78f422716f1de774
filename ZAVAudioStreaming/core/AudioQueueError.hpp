#pragma once

#include <stdexcept>

#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

namespace zav {

/// Thrown by the nodes that record and play when a call of the audio queue service fails.
class ZAV_EXPORT AudioQueueError : public std::runtime_error {
 public:
    enum class Code { failure };

    static AudioQueueError failure(OSStatus status);

    Code code() const noexcept { return code_; }
    /// The platform's status, unchanged.
    OSStatus status() const noexcept { return status_; }

    friend bool operator==(const AudioQueueError& left, const AudioQueueError& right) noexcept {
        return left.code_ == right.code_ && left.status_ == right.status_;
    }

 private:
    AudioQueueError(Code code, const std::string& name, OSStatus status)
        : std::runtime_error(name), code_(code), status_(status) {}

    Code code_;
    OSStatus status_;
};

}  // namespace zav
