#pragma once

#include <stdexcept>

#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

namespace zav {

/// Thrown by the nodes that read and write files.
class ZAV_EXPORT AudioFileError : public std::runtime_error {
 public:
    enum class Code { open, read, create, invalidFormat, noMoreData };

    /// The file service could not open the file.
    static AudioFileError open(OSStatus status);
    /// The file service could not read packets.
    static AudioFileError read(OSStatus status);
    /// A container file could not be created.
    static AudioFileError create();
    /// A container file has no valid header.
    static AudioFileError invalidFormat();
    /// No packet is left in an Opus container file. This is the usual end of reading.
    static AudioFileError noMoreData();

    Code code() const noexcept { return code_; }
    /// The platform's status for `open` and `read`, unchanged; 0 for the others.
    OSStatus status() const noexcept { return status_; }

    friend bool operator==(const AudioFileError& left, const AudioFileError& right) noexcept {
        return left.code_ == right.code_ && left.status_ == right.status_;
    }

 private:
    AudioFileError(Code code, const std::string& name, OSStatus status = noErr)
        : std::runtime_error(name), code_(code), status_(status) {}

    Code code_;
    OSStatus status_;
};

}  // namespace zav
