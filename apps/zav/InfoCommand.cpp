#include "InfoCommand.hpp"

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <ZAVAudioStreaming/platform/FileHandle.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>
#include <vector>

#include "Container.hpp"
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

Json sbcAsJson(const std::vector<std::byte>& frame) {
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

/// The description of a file of any type.
struct Contents {
    std::string type;
    zav::AudioStreamBasicDescription format;
    std::uint64_t packetCount = 0;
    std::uint64_t audioSize = 0;
    std::uint32_t smallestPacket = 0;
    std::uint32_t largestPacket = 0;
    double seconds = 0;
    std::size_t cookieSize = 0;
    bool isDamaged = false;           ///< the damage follows these packets
    std::vector<std::byte> sbcFrame;  ///< for SBC: the first frame
    std::vector<PacketInfo> packets;  ///< empty for PCM, whose packets are single frames
};

bool isPcm(const zav::AudioStreamBasicDescription& format) {
    return format.mFormatID == zav::kAudioFormatLinearPCM ||
           format.mFormatID == zav::kAudioFormatALaw || format.mFormatID == zav::kAudioFormatULaw;
}

/// Computes the members that depend on the list of packets.
void measurePackets(Contents& contents) {
    contents.packetCount = contents.packets.size();
    contents.largestPacket = largestOf(contents.packets);
    contents.smallestPacket = contents.largestPacket;
    contents.audioSize = 0;
    for (const PacketInfo& packet : contents.packets) {
        contents.smallestPacket = std::min(contents.smallestPacket, packet.size);
        contents.audioSize += packet.size;
    }
}

Contents contentsOf(OpusContainer container) {
    Contents contents;
    contents.type = nameOfType(kOpusContainerType);
    contents.format = container.format;
    contents.packets = std::move(container.packets);
    contents.isDamaged = container.isDamaged;
    contents.seconds = secondsIn(contents.packets, contents.format.mSampleRate);
    measurePackets(contents);
    return contents;
}

Contents contentsOf(const SbcContainer& container) {
    Contents contents;
    contents.type = nameOfType(kSbcContainerType);
    contents.format = container.format;
    contents.packets.assign(container.frameCount(),
                            {container.format.mBytesPerPacket, container.format.mFramesPerPacket});
    contents.isDamaged =
        container.audioSize != container.frameCount() * container.format.mBytesPerPacket;
    contents.sbcFrame = container.firstFrame;
    contents.seconds = secondsIn(contents.packets, contents.format.mSampleRate);
    measurePackets(contents);
    return contents;
}

/// Returns all packets of an audio file. Sets `isDamaged` if other bytes follow the packets.
std::vector<PacketInfo> packetsOf(const OpenAudioFile& file,
                                  const zav::AudioStreamBasicDescription& format,
                                  std::uint32_t largestPacket, bool& isDamaged) {
    constexpr std::uint32_t kPacketsAtOnce = 256;
    std::vector<PacketInfo> packets;
    std::vector<std::byte> bytes(std::size_t{kPacketsAtOnce} * std::max(1U, largestPacket));
    std::vector<zav::AudioStreamPacketDescription> places(kPacketsAtOnce);
    for (;;) {
        auto size = static_cast<std::uint32_t>(bytes.size());
        std::uint32_t count = kPacketsAtOnce;
        isDamaged = zav::AudioFileReadPacketData(file.get(), false, &size, places.data(),
                                                 static_cast<std::int64_t>(packets.size()), &count,
                                                 bytes.data()) != zav::noErr;
        if (isDamaged || count == 0) {
            return packets;
        }
        for (const auto& place : std::span(places).first(count)) {
            packets.push_back({place.mDataByteSize, place.mVariableFramesInPacket > 0
                                                        ? place.mVariableFramesInPacket
                                                        : format.mFramesPerPacket});
        }
    }
}

/// Whether a WAVE or AIFF file is shorter than its header says.
bool isCutOff(const std::filesystem::path& path) {
    // A program that writes into a pipe does not know the length. Such programs announce 2 GiB or
    // more.
    constexpr std::uint32_t kUnknown = 0x7FFF0000;
    const zav::FileHandle file = zav::FileHandle::openForReading(path);
    std::array<unsigned char, 8> start{};
    file.readAt(0, start.data(), start.size());
    const bool isRiff = std::memcmp(start.data(), "RIFF", 4) == 0;
    const bool isForm = std::memcmp(start.data(), "FORM", 4) == 0;
    std::uint32_t announced = 0;
    for (std::size_t place = 0; place < 4; ++place) {
        announced = announced << 8 | start[isRiff ? 7 - place : 4 + place];
    }
    // The announced size excludes the first eight bytes of the file, but some programs include
    // them.
    return (isRiff || isForm) && announced < kUnknown && announced > file.size();
}

Contents contentsOf(const OpenAudioFile& file, const std::filesystem::path& path) {
    const auto read = [&]<class Value>(zav::AudioFilePropertyID property, Value) {
        return zav::audioFileProperty<Value>(file.get(), property);
    };
    Contents contents;
    contents.type = nameOfType(read(zav::kAudioFilePropertyFileFormat, zav::AudioFileTypeID{}));
    contents.format = read(zav::kAudioFilePropertyDataFormat, zav::AudioStreamBasicDescription{});
    contents.largestPacket = read(zav::kAudioFilePropertyMaximumPacketSize, std::uint32_t{});
    contents.smallestPacket = contents.largestPacket;
    contents.packetCount = read(zav::kAudioFilePropertyAudioDataPacketCount, std::uint64_t{});
    contents.audioSize = read(zav::kAudioFilePropertyAudioDataByteCount, std::uint64_t{});
    contents.seconds = read(zav::kAudioFilePropertyEstimatedDuration, double{});
    contents.cookieSize = magicCookie(file, path).value_or(std::vector<std::byte>()).size();
    if (contents.format.mFormatID == zav::kAudioFormatSbc) {
        contents.sbcFrame = firstPacket(file, path);
    }
    if (isPcm(contents.format)) {
        contents.isDamaged = isCutOff(path);
    } else {
        contents.packets =
            packetsOf(file, contents.format, contents.largestPacket, contents.isDamaged);
        measurePackets(contents);
    }
    if (contents.format.mFormatID == zav::kAudioFormatSbc) {
        contents.isDamaged |= contents.audioSize < std::filesystem::file_size(path);
    }
    return contents;
}

Contents contentsOf(const std::filesystem::path& path) {
    if (auto container = examineOpusContainer(path)) {
        return contentsOf(std::move(*container));
    }
    if (const auto container = examineSbcContainer(path)) {
        return contentsOf(*container);
    }
    return contentsOf(openAudioFile(path), path);
}

double ratio(double part, double whole) {
    return whole > 0 ? part / whole : 0;
}

/// The number of Opus packets without audio. A lost packet is empty. A packet of silence contains
/// only the byte for the packet's duration.
std::uint64_t gapsIn(const Contents& contents) {
    return static_cast<std::uint64_t>(
        std::count_if(contents.packets.begin(), contents.packets.end(),
                      [](const PacketInfo& packet) { return packet.size <= 1; }));
}

Json describe(const InfoOptions& options) {
    const Contents contents = contentsOf(options.file);
    const auto audioSize = static_cast<double>(contents.audioSize);
    Json description = {
        {"file", options.file.string()},
        {"type", contents.type},
        {"format", inWords(contents.format)},
        {"formatCode", zav::fourCharText(contents.format.mFormatID)},
        {"formatRecord", formatAsJson(contents.format)},
        {"packets", contents.packetCount},
        {"smallestPacketBytes", contents.smallestPacket},
        {"meanPacketBytes", ratio(audioSize, static_cast<double>(contents.packetCount))},
        {"largestPacketBytes", contents.largestPacket},
        {"audioBytes", contents.audioSize},
        {"durationSeconds", contents.seconds},
        {"bitsPerSecond", ratio(8 * audioSize, contents.seconds)},
        {"magicCookieBytes", contents.cookieSize}};
    if (contents.format.mFormatID == zav::kAudioFormatOpus) {
        description["gaps"] = gapsIn(contents);
    }
    if (contents.format.mFormatID == zav::kAudioFormatSbc) {
        description["sbc"] = sbcAsJson(contents.sbcFrame);
    }
    if (contents.isDamaged) {
        description["damagedAfterPackets"] = contents.packetCount;
    }
    if (options.listsPackets) {
        if (isPcm(contents.format)) {
            throw Failure(options.file, inWords(contents.format) +
                                            ", whose packets are single frames; use a compressed "
                                            "format for --packets");
        }
        Json& list = description["packetList"] = Json::array();
        for (const PacketInfo& packet : contents.packets) {
            list.push_back({{"bytes", packet.size}, {"frames", packet.frames}});
        }
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

std::string packetSizesText(const Json& description) {
    const Json& smallest = description["smallestPacketBytes"];
    const Json& largest = description["largestPacketBytes"];
    if (smallest == largest) {
        return counted(largest, "byte");
    }
    std::array<char, 32> mean{};
    std::snprintf(mean.data(), mean.size(), "%.1f", description["meanPacketBytes"].get<double>());
    return smallest.dump() + " to " + largest.dump() + " bytes, " + mean.data() + " on average";
}

void printPackets(const Json& description) {
    const double sampleRate = description["formatRecord"]["mSampleRate"];
    std::printf("\n%8s  %10s  %7s  %6s\n", "packet", "starts at", "bytes", "frames");
    std::uint64_t index = 0;
    std::uint64_t framesBefore = 0;
    for (const Json& packet : description["packetList"]) {
        const auto frames = packet["frames"].get<std::uint64_t>();
        std::printf("%8llu  %8.3f s  %7llu  %6llu\n", static_cast<unsigned long long>(index++),
                    ratio(static_cast<double>(framesBefore), sampleRate),
                    packet["bytes"].get<unsigned long long>(),
                    static_cast<unsigned long long>(frames));
        framesBefore += frames;
    }
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
    printLine("Packet size", packetSizesText(description));
    if (description.contains("gaps")) {
        printLine("Gaps", counted(description["gaps"], "packet") + " without audio");
    }
    printLine("Audio", counted(description["audioBytes"], "byte"));
    printLine("Duration", secondsText(description["durationSeconds"]));
    printLine("Bit rate", bitRateText(description["bitsPerSecond"]));
    if (description["magicCookieBytes"] != 0) {
        printLine("Magic cookie", counted(description["magicCookieBytes"], "byte"));
    }
    if (description.contains("packetList")) {
        printPackets(description);
    }
}

}  // namespace

void info(const InfoOptions& options) {
    const Json description = describe(options);
    if (options.isJson) {
        // The name of a file is not always valid UTF-8.
        std::printf("%s\n",
                    description.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    } else {
        printForPeople(description);
    }
}

}  // namespace zavtool
