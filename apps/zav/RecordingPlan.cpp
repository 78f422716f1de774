#include "RecordingPlan.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "Failure.hpp"

namespace zavtool {
namespace {

struct Codec {
    std::string_view name;
    std::uint32_t formatID;
};

constexpr Codec kCodecs[] = {
    {"pcm", zav::kAudioFormatLinearPCM}, {"aac", zav::kAudioFormatMPEG4AAC},
    {"alac", zav::kAudioFormatALAC},     {"flac", zav::kAudioFormatFLAC},
    {"opus", zav::kAudioFormatOpus},     {"sbc", zav::kAudioFormatSbc},
};

/// The codec for files of a type, unless --codec names another codec. Empty if no encoder here
/// makes audio for such files.
std::string_view usualCodecOf(const FileType& type) {
    switch (type.id) {
        case zav::kAudioFileM4AType:
        case zav::kAudioFileMPEG4Type:
        case zav::kAudioFileAAC_ADTSType:
            return "aac";
        case zav::kAudioFileFLACType:
            return "flac";
        case zav::kAudioFileOggType:
        case kOpusContainerType:
            return "opus";
        case zav::kAudioFileSBCType:
        case kSbcContainerType:
            return "sbc";
        default:
            return holdsPcm(type) ? "pcm" : "";
    }
}

bool canBeRecorded(const FileType& type) {
    return !usualCodecOf(type).empty();
}

zav::AudioStreamBasicDescription pcmFormat(const RecordOptions& options, bool isBigEndian) {
    auto format = zav::linearPcm(options.rate, options.channels);
    if (isBigEndian) {
        format.mFormatFlags |= zav::kAudioFormatFlagIsBigEndian;
    }
    return format;
}

/// The audio queue encodes all codecs except SBC. The queue also makes the Opus packets of Ogg and
/// MP4 files, because these files store the encoder's delay and the queue knows the delay. The
/// library's Opus container has no place for the delay, so the library's own encoder makes its
/// packets.
bool isEncodedByQueue(std::uint32_t codec, const FileType& type) {
    return codec != zav::kAudioFormatLinearPCM && codec != zav::kAudioFormatSbc &&
           type.id != kOpusContainerType;
}

}  // namespace

RecordingPlan recordingPlanFor(const RecordOptions& options) {
    const FileType* const type = typeForName(options.output);
    if (type == nullptr || !canBeRecorded(*type)) {
        throw UsageFailure(shown(options.output) + ": " +
                           (type == nullptr ? "a name of unknown type"
                                            : "nothing here encodes " + std::string(type->name)) +
                           "; use a name with " + extensionsOfTypes(canBeRecorded));
    }
    const std::string_view name = options.codec ? *options.codec : usualCodecOf(*type);
    const auto* const codec = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                           [&](const Codec& other) { return other.name == name; });
    if (codec->formatID != zav::kAudioFormatSbc) {
        requireNoSbcOptions(options.sbc, options.output, name);
    }
    RecordingPlan plan{type, codec->formatID, pcmFormat(options, holdsHighBytesFirst(*type))};
    if (isEncodedByQueue(plan.codec, *type)) {
        plan.captured = {.mSampleRate = static_cast<double>(options.rate),
                         .mFormatID = plan.codec,
                         .mChannelsPerFrame = options.channels};
    }
    return plan;
}

std::string recordableWith(std::uint32_t codec) {
    switch (codec) {
        case zav::kAudioFormatSbc:
            return "--rate 16000, 32000, 44100 or 48000 and --channels 1 or 2";
        case zav::kAudioFormatOpus:
            return "--rate 8000, 12000, 16000, 24000 or 48000 (.zopus: 8000, 16000 or 48000) and "
                   "--channels 1 or 2";
        case zav::kAudioFormatMPEG4AAC:
            return "--rate 8000 to 96000 as AAC has them, such as 16000, 44100 or 48000, and "
                   "--channels 1 to 6 or 8";
        default:
            return "--rate 8000 to 192000 and --channels 1 to 8";
    }
}

std::string recordableExtensions() {
    std::string text;
    for (const Codec& codec : kCodecs) {
        const std::string extensions = extensionsOfTypes(
            [&codec](const FileType& type) { return usualCodecOf(type) == codec.name; });
        if (!extensions.empty()) {
            text += (text.empty() ? "" : "; ") + extensions + " for " + std::string(codec.name);
        }
    }
    return text;
}

}  // namespace zavtool
