#include "tests/support/ScriptedAudioFile.hpp"

#include <algorithm>

namespace zav {

struct OpaqueAudioFileID {};

namespace test {
namespace {

ScriptedAudioFile current;
OpaqueAudioFileID theFile;

OSStatus give(AudioFileID* outAudioFile, OSStatus status) {
    if (status == noErr && !current.givesNoID) {
        *outAudioFile = &theFile;
    }
    return status;
}

}  // namespace

ScriptedAudioFile& scriptedFile() {
    return current;
}

void resetAudioFile() {
    current = {};
}

}  // namespace test

using test::current;

OSStatus AudioFileOpenURL(const std::filesystem::path& inFileRef,
                          AudioFilePermissions inPermissions, AudioFileTypeID inFileTypeHint,
                          AudioFileID* outAudioFile) {
    const std::string hint = inFileTypeHint == 0 ? "" : " as " + fourCharText(inFileTypeHint);
    return test::give(
        outAudioFile,
        current.note("open", (inPermissions == kAudioFileReadPermission ? " to read " : " ") +
                                 inFileRef.string() + hint));
}

OSStatus AudioFileCreateWithURL(const std::filesystem::path& inFileRef, AudioFileTypeID inFileType,
                                const AudioStreamBasicDescription* inFormat, AudioFileFlags inFlags,
                                AudioFileID* outAudioFile) {
    current.createdFormat = *inFormat;
    return test::give(
        outAudioFile,
        current.note("create", (inFlags == kAudioFileFlags_EraseFile ? " anew " : " ") +
                                   inFileRef.string() + " as " + fourCharText(inFileType)));
}

OSStatus AudioFileClose(AudioFileID /*inAudioFile*/) {
    return current.note("close");
}

OSStatus AudioFileReadPacketData(AudioFileID /*inAudioFile*/, bool /*inUseCache*/,
                                 std::uint32_t* ioNumBytes,
                                 AudioStreamPacketDescription* outPacketDescriptions,
                                 std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                                 void* outBuffer) {
    current.descriptions = outPacketDescriptions;
    const OSStatus status =
        current.note("read", " " + std::to_string(*ioNumPackets) + " packets into " +
                                 std::to_string(*ioNumBytes) + " bytes");
    if (status == noErr) {
        const auto rest = std::span(current.audio)
                              .subspan(static_cast<std::size_t>(inStartingPacket) *
                                       test::ScriptedAudioFile::kPacketSize);
        const auto part =
            rest.first(std::min(rest.size(), *ioNumPackets * test::ScriptedAudioFile::kPacketSize));
        *ioNumBytes = static_cast<std::uint32_t>(part.size());
        *ioNumPackets = *ioNumBytes / test::ScriptedAudioFile::kPacketSize;
        std::ranges::copy(part, static_cast<std::byte*>(outBuffer));
    }
    return status;
}

OSStatus AudioFileWritePackets(AudioFileID /*inAudioFile*/, bool /*inUseCache*/,
                               std::uint32_t inNumBytes,
                               const AudioStreamPacketDescription* inPacketDescriptions,
                               std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                               const void* inBuffer) {
    current.descriptions = inPacketDescriptions;
    const auto* const bytes = static_cast<const std::byte*>(inBuffer);
    current.written.insert(current.written.end(), bytes, bytes + inNumBytes);
    const std::uint32_t given = *ioNumPackets;
    if (current.packetsReported != 0) {
        *ioNumPackets = current.packetsReported;
    }
    return current.note("write",
                        " " + std::to_string(given) + " at " + std::to_string(inStartingPacket));
}

OSStatus AudioFileGetPropertyInfo(AudioFileID /*inAudioFile*/, AudioFilePropertyID inPropertyID,
                                  std::uint32_t* outDataSize, std::uint32_t* /*isWritable*/) {
    return current.propertySize(inPropertyID, *outDataSize);
}

OSStatus AudioFileGetProperty(AudioFileID /*inAudioFile*/, AudioFilePropertyID inPropertyID,
                              std::uint32_t* /*ioDataSize*/, void* outPropertyData) {
    return current.readProperty(inPropertyID, outPropertyData);
}

OSStatus AudioFileSetProperty(AudioFileID /*inAudioFile*/, AudioFilePropertyID inPropertyID,
                              std::uint32_t inDataSize, const void* inPropertyData) {
    const auto* const bytes = static_cast<const std::byte*>(inPropertyData);
    current.properties[inPropertyID] = {bytes, bytes + inDataSize};
    return current.note("set");
}

}  // namespace zav
