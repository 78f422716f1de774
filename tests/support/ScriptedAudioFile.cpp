#include "tests/support/ScriptedAudioFile.hpp"

#include <algorithm>

namespace zav {

struct OpaqueAudioFileID {};

namespace test {
namespace {

ScriptedAudioFile current;
OpaqueAudioFileID theFile;

OSStatus give(AudioFileID* file, OSStatus status) {
    if (status == noErr && !current.givesNoID) {
        *file = &theFile;
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

OSStatus AudioFileOpenURL(const std::filesystem::path& path, AudioFilePermissions permissions,
                          AudioFileTypeID hint, AudioFileID* file) {
    const bool isPlain = permissions == kAudioFileReadPermission && hint == 0;
    return test::give(file, current.note("open", (isPlain ? " " : " otherwise ") + path.string()));
}

OSStatus AudioFileCreateWithURL(const std::filesystem::path& path, AudioFileTypeID type,
                                const AudioStreamBasicDescription* format, AudioFileFlags flags,
                                AudioFileID* file) {
    current.createdFormat = *format;
    const std::string where = flags == kAudioFileFlags_EraseFile ? " anew " : " ";
    return test::give(file,
                      current.note("create", where + path.string() + " as " + fourCharText(type)));
}

OSStatus AudioFileClose(AudioFileID) {
    return current.note("close");
}

OSStatus AudioFileReadPacketData(AudioFileID, bool, std::uint32_t* size,
                                 AudioStreamPacketDescription* descriptions, std::int64_t start,
                                 std::uint32_t* packetCount, void* buffer) {
    constexpr std::uint32_t kPacketSize = test::ScriptedAudioFile::kPacketSize;
    current.descriptions = descriptions;
    const OSStatus status = current.note(
        "read", " " + std::to_string(*packetCount) + " packets into " + std::to_string(*size));
    if (status == noErr) {
        const auto rest =
            std::span(current.audio).subspan(static_cast<std::size_t>(start) * kPacketSize);
        const auto part =
            rest.first(std::min(rest.size(), std::size_t{*packetCount} * kPacketSize));
        *size = static_cast<std::uint32_t>(part.size());
        *packetCount = *size / kPacketSize;
        std::ranges::copy(part, static_cast<std::byte*>(buffer));
    }
    return status;
}

OSStatus AudioFileWritePackets(AudioFileID, bool, std::uint32_t size,
                               const AudioStreamPacketDescription* descriptions, std::int64_t start,
                               std::uint32_t* packetCount, const void* buffer) {
    const auto* const bytes = static_cast<const std::byte*>(buffer);
    current.descriptions = descriptions;
    current.written.insert(current.written.end(), bytes, bytes + size);
    const auto given = std::to_string(*packetCount);
    *packetCount = current.packetsReported != 0 ? current.packetsReported : *packetCount;
    return current.note("write", " " + given + " at " + std::to_string(start));
}

OSStatus AudioFileGetPropertyInfo(AudioFileID, AudioFilePropertyID id, std::uint32_t* size,
                                  std::uint32_t* /*isWritable*/) {
    return current.propertySize(id, *size);
}

OSStatus AudioFileGetProperty(AudioFileID, AudioFilePropertyID id, std::uint32_t* /*size*/,
                              void* data) {
    return current.readProperty(id, data);
}

OSStatus AudioFileSetProperty(AudioFileID, AudioFilePropertyID id, std::uint32_t size,
                              const void* data) {
    const auto* const bytes = static_cast<const std::byte*>(data);
    current.properties[id] = {bytes, bytes + size};
    return current.note("set");
}

}  // namespace zav
