#include "ZAVAudioStreaming/sources/ContainerFileSource.hpp"

#include <utility>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"

namespace zav {

ContainerFileSource::ContainerFileSource(OpenedFile opened)
    : fileHandle_(std::move(opened.file)), outDataFormat_(opened.format) {}

void ContainerFileSource::readHeader(FileHandle& file, std::span<std::byte> header) {
    if (file.read(header.data(), header.size()) != header.size()) {
        throw AudioFileError::invalidFormat();
    }
}

void ContainerFileSource::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

}  // namespace zav
