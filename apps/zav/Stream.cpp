#include "Stream.hpp"

#include <ZAVAudioStreaming/core/AudioFileError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <algorithm>
#include <array>
#include <cstdio>

#include "Failure.hpp"

namespace zavtool {

void CloseAudioFile::operator()(zav::AudioFileID file) const {
    zav::AudioFileClose(file);
}

OpenAudioFile openAudioFile(const std::filesystem::path& path) {
    zav::AudioFileID file = nullptr;
    if (const auto status = zav::AudioFileOpenURL(path, zav::kAudioFileReadPermission, 0, &file);
        status != zav::noErr) {
        throw Failure(path, readingProblem(status));
    }
    return OpenAudioFile(file);
}

std::shared_ptr<zav::FileSource> openSource(const std::filesystem::path& path) {
    try {
        return zav::makeNode<zav::FileSource>(path);
    } catch (const zav::AudioFileError& error) {
        throw Failure(path, readingProblem(error.status()));
    }
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

void Meter::receiveAudio(const void* /*bytes*/, std::uint64_t size, std::uint64_t packetNum,
                         const zav::AudioStreamPacketDescription* /*packetDescriptions*/) {
    byteCount_ += size;
    packetCount_ += packetNum;
}

void pump(zav::FileSource& source, const std::filesystem::path& path, std::uint32_t packetsPerUnit,
          Progress& progress) {
    constexpr std::uint32_t kChunkSizeInBytes = 262144;
    const zav::AudioStreamBasicDescription format = source.outDataFormat();
    const std::uint32_t unitSize =
        std::max(1U, source.packetSizeUpperBound()) * std::max(1U, packetsPerUnit);
    const std::int64_t packetsPerChunk =
        std::int64_t{std::max(1U, kChunkSizeInBytes / unitSize)} * packetsPerUnit;
    const double secondsPerPacket = format.mFramesPerPacket / format.mSampleRate;
    try {
        std::int64_t packetsSoFar = 0;
        while (const std::int64_t packetCount = source.readPackets(packetsPerChunk)) {
            packetsSoFar += packetCount;
            progress.update(static_cast<double>(source.progress()),
                            static_cast<double>(packetsSoFar) * secondsPerPacket);
        }
    } catch (const zav::AudioFileError& error) {
        throw Failure(path, readingProblem(error.status()));
    }
}

void showGraph(const CommonOptions& options, const std::string& graph) {
    if (options.isVerbose) {
        std::fprintf(stderr, "%s\n", graph.c_str());
    }
}

std::string secondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", seconds);
    return text.data();
}

}  // namespace zavtool
