#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"

namespace zav {
namespace {

std::string withStatus(const char* name, OSStatus status) {
    return std::string(name) + "(" + statusText(status) + ")";
}

}  // namespace

AudioStreamError AudioStreamError::unacceptableData() {
    return {Code::unacceptableData, "AudioStreamError.unacceptableData"};
}

AudioFileError AudioFileError::open(OSStatus status) {
    return {Code::open, withStatus("AudioFileError.open", status), status};
}

AudioFileError AudioFileError::read(OSStatus status) {
    return {Code::read, withStatus("AudioFileError.read", status), status};
}

AudioFileError AudioFileError::create() {
    return {Code::create, "AudioFileError.create"};
}

AudioFileError AudioFileError::invalidFormat() {
    return {Code::invalidFormat, "AudioFileError.invalidFormat"};
}

AudioFileError AudioFileError::noMoreData() {
    return {Code::noMoreData, "AudioFileError.noMoreData"};
}

AudioQueueError AudioQueueError::failure(OSStatus status) {
    return {Code::failure, withStatus("AudioQueueError.failure", status), status};
}

}  // namespace zav
