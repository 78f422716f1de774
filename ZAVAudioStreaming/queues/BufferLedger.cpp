#include "ZAVAudioStreaming/queues/BufferLedger.hpp"

#include <utility>

namespace zav::detail {

BufferLedger::Memory::Memory(std::uint32_t byteCount)
    : bytes(std::make_unique_for_overwrite<std::byte[]>(byteCount)),
      buffer{byteCount, bytes.get()} {}

AudioQueueBufferRef BufferLedger::add(std::unique_ptr<Memory> memory) {
    auto* const buffer = &memory->buffer;
    memories_.emplace(buffer, std::move(memory));
    return buffer;
}

OSStatus BufferLedger::check(AudioQueueBufferRef buffer) const {
    const auto memory = memories_.find(buffer);
    if (memory == memories_.end() || buffer->mAudioDataByteSize > buffer->mAudioDataBytesCapacity) {
        return kAudioQueueErr_InvalidBuffer;
    }
    return memory->second->isInQueue ? kAudioQueueErr_BufferInQueue : noErr;
}

BufferLedger::Entry& BufferLedger::enqueue(AudioQueueBufferRef buffer) {
    enqueued_.emplace_back().buffer = buffer;
    memories_.at(buffer)->isInQueue = true;
    return enqueued_.back();
}

void BufferLedger::removeLast() {
    memories_.at(enqueued_.back().buffer)->isInQueue = false;
    enqueued_.pop_back();
}

void BufferLedger::returnAtOnce(AudioQueueBufferRef buffer) {
    givenBack_.emplace_back().buffer = buffer;
    memories_.at(buffer)->isInQueue = true;
}

void BufferLedger::giveBackFirst() {
    givenBack_.push_back(std::move(enqueued_.front()));
    enqueued_.pop_front();
}

void BufferLedger::giveBackAll() {
    while (hasEnqueued()) {
        giveBackFirst();
    }
}

bool BufferLedger::takeGivenBack(Entry& entry) {
    if (givenBack_.empty()) {
        return false;
    }
    entry = std::move(givenBack_.front());
    givenBack_.pop_front();
    memories_.at(entry.buffer)->isInQueue = false;
    return true;
}

}  // namespace zav::detail
