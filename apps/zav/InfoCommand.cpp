#include "InfoCommand.hpp"

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "Stream.hpp"

namespace zavtool {
namespace {

using Json = nlohmann::ordered_json;

Json formatAsJson(const zav::AudioStreamBasicDescription& format) {
    return {{"mSampleRate", format.mSampleRate},
            {"mFormatID", format.mFormatID},
            {"mFormatFlags", format.mFormatFlags},
            {"mBytesPerPacket", format.mBytesPerPacket},
            {"mFramesPerPacket", format.mFramesPerPacket},
            {"mBytesPerFrame", format.mBytesPerFrame},
            {"mChannelsPerFrame", format.mChannelsPerFrame},
            {"mBitsPerChannel", format.mBitsPerChannel}};
}

Json sbcAsJson(const OpenAudioFile& file, const std::filesystem::path& path) {
    const auto frame = firstPacket(file, path);
    const auto configuration =
        zav::SBCCoding::SBCConfiguration::fromFrame(frame.data(), frame.size());
    if (configuration == nullptr) {
        return nullptr;
    }
    return {{"mode", nameOf(configuration->mode)},
            {"subbands", countOf(configuration->subband)},
            {"blocks", countOf(configuration->blocks)},
            {"allocation", nameOf(configuration->allocation)},
            {"bitpool", configuration->bitpool}};
}

/// Whether something that is no packet stands where the next one should be.
bool isDamagedAfter(const OpenAudioFile& file, std::uint64_t packetCount,
                    std::uint32_t packetSize) {
    std::vector<std::byte> packet(packetSize);
    std::uint32_t wanted = 1;
    return zav::AudioFileReadPacketData(file.get(), false, &packetSize, nullptr,
                                        static_cast<std::int64_t>(packetCount), &wanted,
                                        packet.data()) != zav::noErr;
}

Json describe(const std::filesystem::path& path) {
    const OpenAudioFile file = openAudioFile(path);
    const auto read = [&]<class Value>(zav::AudioFilePropertyID property, Value) {
        return zav::audioFileProperty<Value>(file.get(), property);
    };
    const auto format = read(zav::kAudioFilePropertyDataFormat, zav::AudioStreamBasicDescription{});
    Json description = {
        {"file", path.string()},
        {"type", nameOfType(read(zav::kAudioFilePropertyFileFormat, zav::AudioFileTypeID{}))},
        {"format", inWords(format)},
        {"formatCode", zav::fourCharText(format.mFormatID)},
        {"formatRecord", formatAsJson(format)},
        {"packets", read(zav::kAudioFilePropertyAudioDataPacketCount, std::uint64_t{})},
        {"largestPacketBytes", read(zav::kAudioFilePropertyMaximumPacketSize, std::uint32_t{})},
        {"audioBytes", read(zav::kAudioFilePropertyAudioDataByteCount, std::uint64_t{})},
        {"durationSeconds", read(zav::kAudioFilePropertyEstimatedDuration, double{})},
        {"magicCookieBytes", magicCookie(file, path).value_or(std::vector<std::byte>()).size()}};
    if (format.mFormatID == zav::kAudioFormatSbc) {
        description["sbc"] = sbcAsJson(file, path);
    }
    if (isDamagedAfter(file, description["packets"], description["largestPacketBytes"])) {
        description["damagedAfterPackets"] = description["packets"];
    }
    return description;
}

std::string flagsText(const Json& formatRecord) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%X", formatRecord["mFormatFlags"].get<unsigned>());
    return text.data();
}

std::string counted(const Json& count, const std::string& unit) {
    return count.dump() + " " + unit + (count == 1 ? "" : "s");
}

void printLine(const char* label, const std::string& text) {
    std::printf("%-16s%s\n", label, text.c_str());
}

void printForPeople(const Json& description) {
    const auto number = [](const Json& value) { return value.dump(); };
    printLine("File", shown(description["file"].get<std::string>()));
    printLine("Type", description["type"]);
    printLine("Format", description["format"]);
    const Json& record = description["formatRecord"];
    printLine("Format record", "'" + description["formatCode"].get<std::string>() + "', flags " +
                                   flagsText(record) + ", " +
                                   counted(record["mBytesPerPacket"], "byte") + " and " +
                                   counted(record["mFramesPerPacket"], "frame") + " a packet,");
    printLine("", counted(record["mBytesPerFrame"], "byte") + " a frame, " +
                      counted(record["mChannelsPerFrame"], "channel") + ", " +
                      counted(record["mBitsPerChannel"], "bit") + " a sample");
    if (description.contains("sbc") && !description["sbc"].is_null()) {
        const Json& sbc = description["sbc"];
        printLine("SBC", sbc["mode"].get<std::string>() + ", bitpool " + number(sbc["bitpool"]) +
                             ", " + number(sbc["subbands"]) + " subbands, " +
                             number(sbc["blocks"]) + " blocks, " +
                             sbc["allocation"].get<std::string>() + " allocation");
    }
    printLine("Packets", number(description["packets"]) +
                             (description.contains("damagedAfterPackets") ? ", then damaged" : ""));
    printLine("Largest packet", counted(description["largestPacketBytes"], "byte"));
    printLine("Audio", counted(description["audioBytes"], "byte"));
    printLine("Duration", secondsText(description["durationSeconds"]));
    printLine("Magic cookie", counted(description["magicCookieBytes"], "byte"));
}

}  // namespace

void info(const InfoOptions& options) {
    const Json description = describe(options.file);
    if (options.isJson) {
        // A file's name need not be UTF-8.
        std::printf("%s\n",
                    description.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    } else {
        printForPeople(description);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw Failure("standard output", "cannot be written; a terminal, file or pipe with room");
    }
}

}  // namespace zavtool
