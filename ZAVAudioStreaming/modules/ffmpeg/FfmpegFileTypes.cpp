#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"

#include <algorithm>
#include <array>

namespace zav::detail {
namespace {

struct Format {
    std::uint32_t formatID;
    AVCodecID codec;
};

constexpr std::array<Format, 10> kFormats = {{
    {kAudioFormatMPEG4AAC, AV_CODEC_ID_AAC},
    {kAudioFormatMPEGLayer1, AV_CODEC_ID_MP1},
    {kAudioFormatMPEGLayer2, AV_CODEC_ID_MP2},
    {kAudioFormatMPEGLayer3, AV_CODEC_ID_MP3},
    {kAudioFormatALAC, AV_CODEC_ID_ALAC},
    {kAudioFormatFLAC, AV_CODEC_ID_FLAC},
    {kAudioFormatOpus, AV_CODEC_ID_OPUS},
    {kAudioFormatVorbis, AV_CODEC_ID_VORBIS},
    {kAudioFormatAC3, AV_CODEC_ID_AC3},
    {kAudioFormatAMR, AV_CODEC_ID_AMR_NB},
}};

struct FfmpegFileType {
    AudioFileTypeID fileType;
    std::string_view demuxer;
    const char* muxer;
    std::array<AVCodecID, 5> codecs;  ///< that we write; the rest is AV_CODEC_ID_NONE
};

// One demuxer reads both MP4 types. The table lists this demuxer with the first of the two. The
// table leaves out formats that libavformat writes but others cannot read (AAC, Opus and FLAC in
// CAF). It also leaves out codecs that players do not expect in M4A.
constexpr std::array<FfmpegFileType, 9> kFileTypes = {{
    {kAudioFileMP3Type, "mp3", "mp3", {AV_CODEC_ID_MP3}},
    {kAudioFileAAC_ADTSType, "aac", "adts", {AV_CODEC_ID_AAC}},
    {kAudioFileMPEG4Type,
     "mov,mp4,m4a,3gp,3g2,mj2",
     "mp4",
     {AV_CODEC_ID_AAC, AV_CODEC_ID_ALAC, AV_CODEC_ID_MP3, AV_CODEC_ID_OPUS, AV_CODEC_ID_AC3}},
    {kAudioFileM4AType, "", "ipod", {AV_CODEC_ID_AAC, AV_CODEC_ID_ALAC}},
    {kAudioFileFLACType, "flac", "flac", {AV_CODEC_ID_FLAC}},
    {kAudioFileAC3Type, "ac3", "ac3", {AV_CODEC_ID_AC3}},
    {kAudioFileAMRType, "amr", "amr", {AV_CODEC_ID_AMR_NB}},
    {kAudioFileOggType, "ogg", "ogg", {AV_CODEC_ID_OPUS, AV_CODEC_ID_VORBIS, AV_CODEC_ID_FLAC}},
    {kAudioFileCAFType, "caf", "caf", {AV_CODEC_ID_ALAC, AV_CODEC_ID_MP3}},
}};

constexpr auto kFileTypeIDs = [] {
    std::array<AudioFileTypeID, kFileTypes.size()> ids{};
    std::transform(kFileTypes.begin(), kFileTypes.end(), ids.begin(),
                   [](const FfmpegFileType& type) { return type.fileType; });
    return ids;
}();

const FfmpegFileType* findFileType(AudioFileTypeID fileType) {
    const auto* const found =
        std::find_if(kFileTypes.begin(), kFileTypes.end(),
                     [fileType](const FfmpegFileType& type) { return type.fileType == fileType; });
    return found == kFileTypes.end() ? nullptr : found;
}

}  // namespace

std::span<const AudioFileTypeID> ffmpegReadableTypes() {
    return kFileTypeIDs;
}

std::span<const AudioFileTypeID> ffmpegWritableTypes() {
    return kFileTypeIDs;
}

AudioFileTypeID fileTypeOfDemuxer(std::string_view demuxer) {
    const auto* const found =
        std::find_if(kFileTypes.begin(), kFileTypes.end(),
                     [demuxer](const FfmpegFileType& type) { return type.demuxer == demuxer; });
    return found == kFileTypes.end() ? 0 : found->fileType;
}

const char* muxerOf(AudioFileTypeID fileType) {
    const FfmpegFileType* const type = findFileType(fileType);
    return type == nullptr ? nullptr : type->muxer;
}

bool canWrite(AudioFileTypeID fileType, AVCodecID codec) {
    const FfmpegFileType* const type = findFileType(fileType);
    return type != nullptr && codec != AV_CODEC_ID_NONE &&
           std::find(type->codecs.begin(), type->codecs.end(), codec) != type->codecs.end();
}

AVCodecID codecOf(std::uint32_t formatID) {
    const auto* const found =
        std::find_if(kFormats.begin(), kFormats.end(),
                     [formatID](const Format& format) { return format.formatID == formatID; });
    return found == kFormats.end() ? AV_CODEC_ID_NONE : found->codec;
}

std::uint32_t formatOf(AVCodecID codec) {
    const auto* const found =
        std::find_if(kFormats.begin(), kFormats.end(),
                     [codec](const Format& format) { return format.codec == codec; });
    return found == kFormats.end() ? 0 : found->formatID;
}

}  // namespace zav::detail
