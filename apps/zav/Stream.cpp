#include "Stream.hpp"

#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <cstdio>
#include <system_error>

#include "Failure.hpp"

namespace zavtool {

void CloseAudioFile::operator()(zav::AudioFileID file) const {
    zav::AudioFileClose(file);
}

OpenAudioFile openAudioFile(const std::filesystem::path& path) {
    zav::AudioFileID file = nullptr;
    if (const auto status = zav::AudioFileOpenURL(path, zav::kAudioFileReadPermission, 0, &file);
        status != zav::noErr) {
        std::error_code error;
        if (std::filesystem::file_size(path, error) == 0 && !error) {
            throw Failure(path, "is empty; use a file with audio");
        }
        throw Failure(path, readingProblem(status));
    }
    return OpenAudioFile(file);
}

std::vector<std::byte> firstPacket(const OpenAudioFile& file, const std::filesystem::path& path) {
    auto size = zav::audioFileProperty<std::uint32_t>(file.get(),
                                                      zav::kAudioFilePropertyPacketSizeUpperBound);
    std::vector<std::byte> packet(size);
    std::uint32_t count = 1;
    if (const auto status = zav::AudioFileReadPacketData(file.get(), false, &size, nullptr, 0,
                                                         &count, packet.data());
        status != zav::noErr) {
        throw Failure(path, readingProblem(status));
    }
    packet.resize(size);
    return packet;
}

std::optional<std::vector<std::byte>> magicCookie(const OpenAudioFile& file,
                                                  const std::filesystem::path& path) {
    std::uint32_t size = 0;
    if (zav::AudioFileGetPropertyInfo(file.get(), zav::kAudioFilePropertyMagicCookieData, &size,
                                      nullptr) != zav::noErr) {
        return std::nullopt;
    }
    std::vector<std::byte> cookie(size);
    if (const auto status = zav::AudioFileGetProperty(
            file.get(), zav::kAudioFilePropertyMagicCookieData, &size, cookie.data());
        status != zav::noErr) {
        throw Failure(path, readingProblem(status));
    }
    return cookie;
}

void StreamCounter::receiveAudio(const void* /*bytes*/, std::uint64_t size, std::uint64_t packetNum,
                                 const zav::AudioStreamPacketDescription* /*packetDescriptions*/) {
    byteCount_ += size;
    packetCount_ += packetNum;
}

std::shared_ptr<zav::AudioStreamOutputable> redeclared(
    const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
    const zav::AudioStreamBasicDescription& format) {
    const auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(format);
    zav::makeNode<Relay>(upstream, source);
    return source;
}

void showGraph(const CommonOptions& options, const std::string& graph) {
    if (options.isVerbose) {
        std::fprintf(stderr, "%s\n", graph.c_str());
    }
}

}  // namespace zavtool
