#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegReader.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketScan.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/SourceDepth.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

/// The offset after the ID3v2 tags at the start of the file. The type of the file can only be
/// recognized after the tags, which can contain pictures of any size. We hide the tags from
/// libavformat: it prints warnings about odd tags, without a context that we could silence.
std::uint64_t endOfTags(const FileHandle& file) {
    constexpr std::size_t kHeaderSize = 10;
    constexpr int kMostTags = 16;
    std::uint64_t offset = 0;
    for (int tags = 0; tags < kMostTags; ++tags) {
        std::array<std::byte, kHeaderSize> header{};
        if (file.readAt(offset, header.data(), header.size()) < header.size() ||
            std::memcmp(header.data(), "ID3", 3) != 0) {
            break;
        }
        std::uint64_t size = 0;
        for (std::size_t i = 6; i < kHeaderSize; ++i) {
            size = size << 7U | (std::to_integer<std::uint64_t>(header[i]) & 0x7FU);
        }
        offset += kHeaderSize + size;
    }
    return offset;
}

/// The demuxer that libavformat chooses by the first bytes; null if we do not read its file type.
const AVInputFormat* findDemuxer(const FileHandle& file, std::uint64_t start) {
    // Most types can be recognized by the first bytes. MPEG audio needs several packets.
    constexpr std::array<std::size_t, 2> kProbeSizes = {4096, 65536};
    constexpr int kCertain = AVPROBE_SCORE_MAX / 2;
    constexpr int kFewPackets = 5;
    const AVInputFormat* format = nullptr;
    int score = 0;
    for (const std::size_t size : kProbeSizes) {
        std::vector<std::uint8_t> bytes(size + AVPROBE_PADDING_SIZE);
        AVProbeData probe{};
        probe.filename = "";
        probe.buf = bytes.data();
        probe.buf_size = static_cast<int>(file.readAt(start, bytes.data(), size));
        format = av_probe_input_format3(&probe, 1, &score);
        if (score > kCertain) {
            break;
        }
    }
    return format != nullptr && score >= kFewPackets && fileTypeOfDemuxer(format->name) != 0
               ? format
               : nullptr;
}

/// libavformat prints a warning about a rate of 0, without a context that we could silence. So the
/// rate is checked first.
void requireCafRate(const FileHandle& file, std::uint64_t start) {
    // The rate is in the description, which is the first chunk of every CAF file.
    constexpr std::uint64_t kOffset = 20;
    std::array<std::byte, sizeof(double)> bytes{};
    file.readAt(start + kOffset, bytes.data(), bytes.size());
    const auto rate = std::bit_cast<double>(bigEndianAt(bytes));
    if (!(rate >= 1 && rate <= std::numeric_limits<int>::max())) {
        throw StatusFailure(kAudioFileInvalidFileError);
    }
}

[[noreturn]] void failWith(AvioFile& io, OSStatus status) {
    io.throwFileError();
    throw StatusFailure(status);
}

FormatContext openInput(AvioFile& io, const AVInputFormat* format) {
    AVFormatContext* context = makeFormatContext(io.context()).release();
    // This call frees the context if it fails.
    const int result = avformat_open_input(&context, "", format, nullptr);
    FormatContext opened(context);
    if (result < 0) {
        // A broken size that asks for too much memory fails the same way.
        failWith(io, kAudioFileInvalidFileError);
    }
    return opened;
}

/// Returns the first audio stream; null if there is none. Discards all other streams.
AVStream* chooseStream(AVFormatContext& context) {
    AVStream* chosen = nullptr;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        AVStream* const stream = context.streams[i];
        if (chosen == nullptr && stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            chosen = stream;
        } else {
            stream->discard = AVDISCARD_ALL;
        }
    }
    return chosen;
}

/// Lets libavformat decode a little, to find parameters that the headers do not contain.
void findParameters(AVFormatContext& context) {
    std::vector<AVDictionary*> options(context.nb_streams, nullptr);
    for (AVDictionary*& option : options) {
        // Otherwise the decoders that libavformat opens would print the file's faults.
        av_dict_set_int(&option, "log_level_offset", kSilence, 0);
    }
    // Best effort: the caller checks for parameters that are still missing.
    static_cast<void>(avformat_find_stream_info(&context, options.data()));
    for (AVDictionary*& option : options) {
        av_dict_free(&option);
    }
}

/// True for MP4 and CAF, which list the sizes of packets. libavformat reads other types in small
/// pieces.
bool namesPacketSizes(const AVInputFormat* demuxer) {
    const AudioFileTypeID fileType = fileTypeOfDemuxer(demuxer->name);
    return fileType == kAudioFileMPEG4Type || fileType == kAudioFileCAFType;
}

AudioFileTypeID fileTypeOf(const AVFormatContext& context) {
    const AudioFileTypeID fileType = fileTypeOfDemuxer(context.iformat->name);
    if (fileType == kAudioFileMPEG4Type) {
        const AVDictionaryEntry* const brand =
            av_dict_get(context.metadata, "major_brand", nullptr, 0);
        if (brand != nullptr && std::string_view(brand->value).substr(0, 3) == "M4A") {
            return kAudioFileM4AType;
        }
    }
    return fileType;
}

std::uint32_t framesPerPacket(const FfmpegInput& file) {
    const AVCodecParameters& parameters = *file.stream->codecpar;
    const auto extradata = extradataOf(parameters);
    switch (parameters.codec_id) {
        case AV_CODEC_ID_VORBIS:
            return 0;
        case AV_CODEC_ID_OPUS:
            return commonOpusFrameCount(file);
        case AV_CODEC_ID_ALAC:
            return file.cookie.size() < 4
                       ? 0
                       : static_cast<std::uint32_t>(bigEndianAt(std::span(file.cookie).first(4)));
        case AV_CODEC_ID_FLAC: {
            // STREAMINFO begins with the lengths of the shortest and the longest block.
            const auto shortest = extradata.size() < 4 ? 0 : bigEndianAt(extradata.first(2));
            const auto longest = extradata.size() < 4 ? 0 : bigEndianAt(extradata.subspan(2, 2));
            return shortest == longest ? static_cast<std::uint32_t>(longest) : 0;
        }
        default: {
            const std::uint32_t frames =
                file.firstPacket == nullptr ? 0
                                            : framesIn(*file.stream, 0, file.firstPacket->duration);
            return frames != 0 ? frames : static_cast<std::uint32_t>(parameters.frame_size);
        }
    }
}

}  // namespace

std::unique_ptr<AudioFileReader> openFfmpegFile(FileHandle& file) {
    const std::uint64_t start = std::min(endOfTags(file), file.size());
    const AVInputFormat* const demuxer = findDemuxer(file, start);
    if (demuxer == nullptr) {
        return nullptr;
    }
    if (fileTypeOfDemuxer(demuxer->name) == kAudioFileCAFType) {
        requireCafRate(file, start);
    }
    FfmpegInput opened;
    opened.io = std::make_unique<AvioFile>(std::move(file), AvioFile::Access::read, start);
    opened.context = openInput(*opened.io, demuxer);
    opened.fileType = fileTypeOf(*opened.context);
    if (namesPacketSizes(demuxer)) {
        opened.io->hideSize();
    }
    opened.stream = chooseStream(*opened.context);
    if (opened.fileType != kAudioFileOggType ||
        (opened.stream != nullptr && opened.stream->codecpar->sample_rate == 0)) {
        findParameters(*opened.context);
    }
    if (opened.stream == nullptr) {
        failWith(*opened.io, kAudioFileUnsupportedDataFormatError);
    }
    const AVCodecParameters& parameters = *opened.stream->codecpar;
    opened.dataFormat.mFormatID = formatOf(parameters.codec_id);
    if (opened.dataFormat.mFormatID == 0) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
    if (parameters.sample_rate <= 0 || parameters.ch_layout.nb_channels <= 0) {
        failWith(*opened.io, kAudioFileInvalidFileError);
    }
    opened.firstPacket = nextPacket(opened);
    opened.cookie = cookieOfExtradata(parameters.codec_id, extradataOf(parameters));
    if (opened.cookie.empty() && opened.fileType == kAudioFileAAC_ADTSType &&
        opened.firstPacket != nullptr) {
        opened.cookie = audioSpecificConfigOfAdts(bytesOf(*opened.firstPacket));
    }
    opened.dataFormat.mFormatFlags =
        sourceDepthFlag(sourceDepthInCookie(parameters.codec_id, opened.cookie));
    opened.dataFormat.mSampleRate = parameters.sample_rate;
    opened.dataFormat.mChannelsPerFrame =
        static_cast<std::uint32_t>(parameters.ch_layout.nb_channels);
    opened.dataFormat.mFramesPerPacket = framesPerPacket(opened);
    return std::make_unique<FfmpegReader>(std::move(opened));
}

const PacketTable& FfmpegReader::table() {
    if (scanFailure_ != nullptr) {
        std::rethrow_exception(scanFailure_);
    }
    if (!scan_) {
        try {
            PacketScan scan = scanPackets(input_);
            input_.io->throwFileError();
            scan_ = std::move(scan);
        } catch (...) {
            scanFailure_ = std::current_exception();
            throw;
        }
        // From here on, reading needs only the table and the file.
        input_.context.reset();
        input_.firstPacket.reset();
        input_.stream = nullptr;
    }
    return scan_->table;
}

double FfmpegReader::durationInSeconds() {
    const std::uint64_t frames = table().frameCount();
    return static_cast<double>(frames - std::min(frames, scan_->unheardFrames)) /
           dataFormat().mSampleRate;
}

void FfmpegReader::readBytes(std::uint64_t offset, void* buffer, std::size_t size) {
    const FileHandle& file = input_.io->file();
    const std::size_t done = fileType() == kAudioFileOggType
                                 ? scan_->pages.read(file, offset, buffer, size)
                                 : file.readAt(offset, buffer, size);
    if (done < size) {
        // The file was cut after its packets were counted.
        throw StatusFailure(kAudioFileInvalidFileError);
    }
}

PacketRun FfmpegReader::readPackets(std::uint64_t firstPacket, PacketRun room,
                                    AudioStreamPacketDescription* descriptions, void* buffer) {
    const PacketTable& packets = table();
    if (firstPacket >= packets.size() && room.packetCount > 0 && scan_->pages.isChained()) {
        // A second stream with its own header follows. We cannot read that stream, so this is not
        // the regular end of the file.
        throw StatusFailure(kAudioFileInvalidFileError);
    }
    auto* const out = static_cast<std::byte*>(buffer);
    PacketRun run;
    // Packets that follow each other in the file are read in one piece.
    std::uint64_t pieceOffset = 0;
    std::size_t pieceSize = 0;
    const auto readPiece = [&] {
        readBytes(pieceOffset, out + run.byteCount - pieceSize, pieceSize);
        pieceSize = 0;
    };
    for (std::uint64_t index = firstPacket;
         index < packets.size() && run.packetCount < room.packetCount; ++index) {
        const PacketPlace packet = packets[index];
        if (packet.size > room.byteCount - run.byteCount) {
            break;
        }
        if (pieceSize > 0 && packet.offset != pieceOffset + pieceSize) {
            readPiece();
        }
        if (pieceSize == 0) {
            pieceOffset = packet.offset;
        }
        if (descriptions != nullptr) {
            const bool isUsual = packet.frameCount == dataFormat().mFramesPerPacket;
            descriptions[run.packetCount] = {run.byteCount, isUsual ? 0 : packet.frameCount,
                                             packet.size};
        }
        pieceSize += packet.size;
        run.byteCount += packet.size;
        ++run.packetCount;
    }
    if (pieceSize > 0) {
        readPiece();
    }
    return run;
}

}  // namespace zav::detail
