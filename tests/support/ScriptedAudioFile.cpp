#include "tests/support/ScriptedAudioFile.hpp"

#include <algorithm>
#include <cstring>
#include <memory>

namespace zav {

struct OpaqueAudioFileID {};

namespace test {
namespace {

std::unique_ptr<ScriptedAudioFile> current = std::make_unique<ScriptedAudioFile>();
OpaqueAudioFileID theFile;

OSStatus note(const std::string& call) {
    current->calls.push_back(call);
    const auto failure = current->failures.find(call);
    return failure == current->failures.end() ? noErr : failure->second;
}

std::uint64_t packetCount() {
    return current->audio.size() / current->packetSize;
}

std::vector<std::byte> valueOf(AudioFilePropertyID property) {
    const auto bytesOf = [](const auto& value) {
        const auto* const first = reinterpret_cast<const std::byte*>(&value);
        return std::vector<std::byte>(first, first + sizeof(value));
    };
    switch (property) {
        case kAudioFilePropertyDataFormat:
            return bytesOf(current->format);
        case kAudioFilePropertyPacketSizeUpperBound:
            return bytesOf(current->packetSize);
        case kAudioFilePropertyAudioDataPacketCount:
            return bytesOf(packetCount());
        case kAudioFilePropertyEstimatedDuration:
            return bytesOf(static_cast<double>(current->written.size()));
        default:
            return {};
    }
}

}  // namespace

ScriptedAudioFile& scriptedFile() {
    return *current;
}

void resetAudioFile() {
    current = std::make_unique<ScriptedAudioFile>();
}

}  // namespace test

using test::current;
using test::note;
using test::theFile;

OSStatus AudioFileOpenURL(const std::filesystem::path& inFileRef,
                          AudioFilePermissions inPermissions, AudioFileTypeID inFileTypeHint,
                          AudioFileID* outAudioFile) {
    current->path = inFileRef;
    current->permissions = inPermissions;
    current->typeHint = inFileTypeHint;
    const OSStatus status = note("open");
    if (status == noErr && !current->givesNoID) {
        *outAudioFile = &theFile;
    }
    return status;
}

OSStatus AudioFileCreateWithURL(const std::filesystem::path& inFileRef, AudioFileTypeID inFileType,
                                const AudioStreamBasicDescription* inFormat, AudioFileFlags inFlags,
                                AudioFileID* outAudioFile) {
    current->path = inFileRef;
    current->createdType = inFileType;
    current->createdFormat = *inFormat;
    current->flags = inFlags;
    const OSStatus status = note("create");
    if (status == noErr) {
        *outAudioFile = &theFile;
    }
    return status;
}

OSStatus AudioFileClose(AudioFileID /*inAudioFile*/) {
    return note("close");
}

OSStatus AudioFileReadPacketData(AudioFileID /*inAudioFile*/, bool /*inUseCache*/,
                                 std::uint32_t* ioNumBytes,
                                 AudioStreamPacketDescription* outPacketDescriptions,
                                 std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                                 void* outBuffer) {
    current->readByteBudget = *ioNumBytes;
    current->descriptions = outPacketDescriptions;
    if (const OSStatus status = note("read"); status != noErr) {
        return status;
    }
    const auto start = static_cast<std::uint64_t>(inStartingPacket);
    const std::uint64_t rest = test::packetCount() - std::min(start, test::packetCount());
    *ioNumPackets = static_cast<std::uint32_t>(std::min<std::uint64_t>(*ioNumPackets, rest));
    *ioNumBytes = *ioNumPackets * current->packetSize;
    if (*ioNumBytes > 0) {
        std::memcpy(outBuffer, &current->audio[start * current->packetSize], *ioNumBytes);
    }
    return noErr;
}

OSStatus AudioFileWritePackets(AudioFileID /*inAudioFile*/, bool /*inUseCache*/,
                               std::uint32_t inNumBytes,
                               const AudioStreamPacketDescription* inPacketDescriptions,
                               std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                               const void* inBuffer) {
    current->descriptions = inPacketDescriptions;
    current->writeIndices.push_back(inStartingPacket);
    current->writePacketCounts.push_back(*ioNumPackets);
    const auto* const bytes = static_cast<const std::byte*>(inBuffer);
    current->written.insert(current->written.end(), bytes, bytes + inNumBytes);
    if (current->packetsReported != 0) {
        *ioNumPackets = current->packetsReported;
    }
    return note("write");
}

OSStatus AudioFileGetPropertyInfo(AudioFileID /*inAudioFile*/, AudioFilePropertyID inPropertyID,
                                  std::uint32_t* outDataSize, std::uint32_t* /*isWritable*/) {
    if (const auto failure = current->propertyFailures.find(inPropertyID);
        failure != current->propertyFailures.end()) {
        return failure->second;
    }
    *outDataSize = static_cast<std::uint32_t>(test::valueOf(inPropertyID).size());
    return noErr;
}

OSStatus AudioFileGetProperty(AudioFileID /*inAudioFile*/, AudioFilePropertyID inPropertyID,
                              std::uint32_t* ioDataSize, void* outPropertyData) {
    if (const OSStatus status = note("get"); status != noErr) {
        return status;
    }
    std::memcpy(outPropertyData, test::valueOf(inPropertyID).data(), *ioDataSize);
    return noErr;
}

OSStatus AudioFileSetProperty(AudioFileID /*inAudioFile*/, AudioFilePropertyID /*inPropertyID*/,
                              std::uint32_t inDataSize, const void* inPropertyData) {
    const auto* const bytes = static_cast<const std::byte*>(inPropertyData);
    current->cookie.assign(bytes, bytes + inDataSize);
    return note("set");
}

}  // namespace zav
