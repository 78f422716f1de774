#pragma once

#include <exception>

#include "ZAVAudioStreaming/core/OSStatus.hpp"

namespace zav::detail {

/// Carries a status from a failed step of a service up to the function that returns it.
class StatusFailure : public std::exception {
 public:
    explicit StatusFailure(OSStatus status) : status_(status) {}

    OSStatus status() const noexcept { return status_; }
    const char* what() const noexcept override { return "a service's status"; }

 private:
    OSStatus status_;
};

}  // namespace zav::detail
