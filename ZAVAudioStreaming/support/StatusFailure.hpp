#pragma once

#include <exception>

#include "ZAVAudioStreaming/core/OSStatus.hpp"

namespace zav::detail {

/// Carries the status of a failed step up to the service function that returns it.
class StatusFailure : public std::exception {
 public:
    explicit StatusFailure(OSStatus status) : status_(status) {}

    OSStatus status() const noexcept { return status_; }
    const char* what() const noexcept override { return "a service's status"; }

 private:
    OSStatus status_;
};

}  // namespace zav::detail
