#include "ZAVAudioStreaming/modules/ffmpeg/PacketScan.hpp"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <limits>
#include <string_view>

#include "ZAVAudioStreaming/core/OpusPacket.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FileWindow.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketDuration.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

/// `to - from`; 0 if that is negative or overflows, as it can in a broken file.
std::int64_t distance(std::int64_t from, std::int64_t to) {
    std::int64_t result = 0;
    return __builtin_sub_overflow(to, from, &result) || result < 0 ? 0 : result;
}

/// `left + right`; 0 if that overflows.
std::int64_t sum(std::int64_t left, std::int64_t right) {
    std::int64_t result = 0;
    return __builtin_add_overflow(left, right, &result) ? 0 : result;
}

/// Frames that a player leaves out at both ends of a packet.
std::uint64_t unheardFramesIn(const AVPacket& packet) {
    // Two little-endian integers of 4 bytes, then two bytes of reasons.
    constexpr std::size_t kSize = 10;
    std::size_t size = 0;
    const std::uint8_t* const data =
        av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    if (data == nullptr || size < kSize) {
        return 0;
    }
    const auto bytes = std::as_bytes(std::span(data, size));
    return littleEndianAt(bytes.first(4)) + littleEndianAt(bytes.subspan(4, 4));
}

/// Finds the file offset of a packet that libavformat returned. The search starts at `from`, the
/// end of the previous packet, where the packet nearly always begins. After skipped junk, the
/// packet can be elsewhere, and the parser's `suggestion` can be wrong.
std::optional<std::uint64_t> findBytes(FileWindow& window, std::span<const std::byte> bytes,
                                       std::uint64_t from, std::int64_t suggestion) {
    constexpr std::size_t kFarthest = 262144;
    const auto standsAt = [&](std::uint64_t offset) {
        const auto there = window.at(offset, bytes.size());
        return std::equal(there.begin(), there.end(), bytes.begin(), bytes.end());
    };
    if (standsAt(from)) {
        return from;
    }
    const auto suggested = static_cast<std::uint64_t>(suggestion);
    if (suggestion >= 0 && suggested > from && standsAt(suggested)) {
        return suggested;
    }
    const auto ahead = window.at(from, bytes.size() + kFarthest);
    const auto found = std::search(ahead.begin(), ahead.end(), bytes.begin(), bytes.end());
    if (found == ahead.end()) {
        return std::nullopt;
    }
    return from + static_cast<std::uint64_t>(found - ahead.begin());
}

/// Scans a file that contains only packets, or a header and packets.
void scanStream(FfmpegInput& input, PacketScan& scan) {
    FileWindow window(input.io->file());
    const bool hasAdts = input.fileType == kAudioFileAAC_ADTSType;
    std::uint64_t end = input.io->start();
    bool isFirst = true;
    for (Packet packet = std::move(input.firstPacket); packet != nullptr;
         packet = nextPacket(input)) {
        const auto bytes = bytesOf(*packet);
        const std::int64_t suggestion =
            packet->pos < 0 ? -1 : packet->pos + static_cast<std::int64_t>(input.io->start());
        const auto offset = findBytes(
            window, bytes,
            isFirst && suggestion >= 0 ? static_cast<std::uint64_t>(suggestion) : end, suggestion);
        if (!offset) {
            // The parser joined the pieces before and after some junk.
            continue;
        }
        isFirst = false;
        end = *offset + bytes.size();
        const std::size_t header = hasAdts ? adtsHeaderSize(bytes) : 0;
        const auto duration = static_cast<std::uint32_t>(
            packet->duration > 0 ? framesIn(*input.stream, 0, packet->duration)
                                 : input.dataFormat.mFramesPerPacket);
        if (!scan.table.add(
                {*offset + header, static_cast<std::uint32_t>(bytes.size() - header), duration})) {
            return;
        }
        scan.unheardFrames += unheardFramesIn(*packet);
    }
}

std::span<const std::byte> firstBytesOf(AVCodecID codec) {
    using namespace std::string_view_literals;
    std::string_view text =
        "\x7F"
        "FLAC"sv;
    if (codec == AV_CODEC_ID_OPUS) {
        text = "OpusHead"sv;
    } else if (codec == AV_CODEC_ID_VORBIS) {
        text = "\x01vorbis"sv;
    }
    return std::as_bytes(std::span(text));
}

/// Calls `take` for every packet of audio, but not for headers.
void walkOgg(const FfmpegInput& input, OggPages& pages,
             const std::function<bool(const OggPacket&)>& take) {
    const AVCodecID codec = input.stream->codecpar->codec_id;
    int headers = codec == AV_CODEC_ID_VORBIS ? 3 : 2;
    pages.walk(input.io->file(), firstBytesOf(codec), [&](const OggPacket& packet) {
        // FLAC can leave the number of its header packets open. Only its audio packets begin with
        // this byte.
        const bool isHeader = codec == AV_CODEC_ID_FLAC
                                  ? !packet.start.empty() && packet.start.front() != std::byte{0xFF}
                                  : headers-- > 0;
        return isHeader || take(packet);
    });
}

void scanOgg(FfmpegInput& input, PacketScan& scan) {
    const AVCodecParameters& parameters = *input.stream->codecpar;
    const auto extradata = extradataOf(parameters);
    PacketDuration duration(parameters.codec_id, input.dataFormat.mFramesPerPacket, extradata);
    // A granule position counts the frames up to the end of a page. The first granule position
    // gives the start of the stream. The start is not 0 if the stream was cut out of a longer
    // stream. The last granule position gives the end of the stream, which can be inside the last
    // packet.
    std::optional<std::int64_t> startGranule;
    std::optional<std::int64_t> endGranule;
    walkOgg(input, scan.pages, [&](const OggPacket& packet) {
        if (packet.size > 0 &&
            !scan.table.add({packet.offset, packet.size, duration.frameCount(packet.start)})) {
            return false;
        }
        if (packet.granule) {
            if (!startGranule) {
                startGranule = std::max<std::int64_t>(
                    0, *packet.granule - static_cast<std::int64_t>(scan.table.frameCount()));
            }
            endGranule = packet.granule;
        }
        return true;
    });
    const std::uint64_t all = scan.table.frameCount();
    std::uint64_t heard = all;
    if (startGranule && *endGranule > *startGranule) {
        heard = std::min(heard, static_cast<std::uint64_t>(*endGranule - *startGranule));
    }
    if (parameters.codec_id == AV_CODEC_ID_OPUS) {
        heard -= std::min<std::uint64_t>(heard, opusPreSkip(extradata));
    }
    scan.unheardFrames = all - heard;
}

/// Reads the packet at `timestamp` again, because the index does not contain the duration of the
/// last packet.
Packet packetAt(FfmpegInput& input, std::int64_t timestamp) {
    input.stream->discard = AVDISCARD_DEFAULT;
    if (av_seek_frame(input.context.get(), input.stream->index, timestamp, AVSEEK_FLAG_BACKWARD) <
        0) {
        return nullptr;
    }
    return nextPacket(input);
}

/// Frames in the last packet, which begins `timeToEnd` before the end of the stream. The packet,
/// its entry and the stream can each contain a duration. Any of these durations can include
/// padding, so this returns the smallest one.
std::uint32_t framesInLast(const FfmpegInput& input, const AVPacket* packet,
                           std::int64_t timeToEnd) {
    const AVStream& stream = *input.stream;
    const AVCodecParameters& parameters = *stream.codecpar;
    std::uint32_t fewest = input.dataFormat.mFramesPerPacket;
    const auto consider = [&fewest](std::uint32_t frames) {
        fewest = frames != 0 && (frames < fewest || fewest == 0) ? frames : fewest;
    };
    if (packet != nullptr) {
        PacketDuration duration(parameters.codec_id, fewest, extradataOf(parameters));
        consider(duration.frameCount(bytesOf(*packet)));
        consider(framesIn(stream, 0, std::max<std::int64_t>(packet->duration, 0)));
    }
    consider(framesIn(stream, 0, timeToEnd));
    return fewest;
}

/// Scans an MP4 or CAF file, whose headers list the packets.
void readIndex(FfmpegInput& input, PacketScan& scan) {
    AVStream& stream = *input.stream;
    const Packet firstPacket = std::move(input.firstPacket);
    if (firstPacket == nullptr) {
        return;
    }
    if (input.fileType != kAudioFileCAFType) {
        // A fragmented MP4 file has one list for each fragment. If all audio is discarded, this
        // call reads all the lists and no audio.
        stream.discard = AVDISCARD_ALL;
        static_cast<void>(nextPacket(input));
        stream.discard = AVDISCARD_DEFAULT;
    }
    const int count = avformat_index_get_entries_count(&stream);
    const AVIndexEntry* const first = avformat_index_get_entry(&stream, 0);
    if (first == nullptr) {
        throw StatusFailure(kAudioFileInvalidFileError);
    }
    // In CAF, positions count from the start of the audio.
    const std::int64_t start =
        static_cast<std::int64_t>(input.io->start()) +
        (input.fileType == kAudioFileCAFType ? distance(first->pos, firstPacket->pos) : 0);
    const std::uint64_t fileSize = input.io->file().size();
    std::uint64_t discardedFrames = 0;
    // Reading a packet can move the entries, so this time is copied first.
    const std::int64_t lastTime = avformat_index_get_entry(&stream, count - 1)->timestamp;
    // The stream's duration counts from time 0. In a fragmented file it counts from the time of the
    // first packet. That time is negative if there is priming.
    const std::int64_t endTime =
        stream.nb_frames < count ? sum(stream.duration, first->timestamp) : stream.duration;
    const std::int64_t timeToEnd = distance(lastTime, endTime);
    const Packet lastPacket = packetAt(input, lastTime);
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* const entry = avformat_index_get_entry(&stream, i);
        const AVIndexEntry* const next = avformat_index_get_entry(&stream, i + 1);
        if (entry == nullptr) {
            break;
        }
        std::int64_t size = entry->size;
        if (size == 0) {
            size = next != nullptr         ? distance(entry->pos, next->pos)
                   : lastPacket != nullptr ? lastPacket->size
                                           : 0;
        }
        std::int64_t offset = 0;
        if (__builtin_add_overflow(start, entry->pos, &offset) || size < 0 || offset < 0 ||
            static_cast<std::uint64_t>(offset) > fileSize ||
            static_cast<std::uint64_t>(size) > fileSize - static_cast<std::uint64_t>(offset)) {
            // The file ends before this packet does.
            break;
        }
        if (size == 0) {
            continue;
        }
        const std::uint32_t frames = next != nullptr
                                         ? framesIn(stream, entry->timestamp, next->timestamp)
                                         : framesInLast(input, lastPacket.get(), timeToEnd);
        if (!scan.table.add({static_cast<std::uint64_t>(offset), static_cast<std::uint32_t>(size),
                             frames != 0 ? frames : input.dataFormat.mFramesPerPacket})) {
            break;
        }
        if ((entry->flags & AVINDEX_DISCARD_FRAME) != 0) {
            discardedFrames += frames;
        }
    }
    // Both values count the same frames: the frames before the first edit.
    scan.unheardFrames = std::max(unheardFramesIn(*firstPacket), discardedFrames);
    if (stream.codecpar->codec_id == AV_CODEC_ID_OPUS) {
        scan.unheardFrames =
            std::max<std::uint64_t>(scan.unheardFrames, opusPreSkip(extradataOf(*stream.codecpar)));
    }
}

}  // namespace

PacketScan scanPackets(FfmpegInput& input) {
    PacketScan scan;
    switch (input.fileType) {
        case kAudioFileOggType:
            scanOgg(input, scan);
            break;
        case kAudioFileM4AType:
        case kAudioFileMPEG4Type:
        case kAudioFileCAFType:
            readIndex(input, scan);
            break;
        default:
            scanStream(input, scan);
    }
    return scan;
}

Packet nextPacket(FfmpegInput& input) {
    Packet packet = makePacket();
    while (av_read_frame(input.context.get(), packet.get()) >= 0) {
        if (packet->stream_index == input.stream->index && packet->size > 0) {
            return packet;
        }
        av_packet_unref(packet.get());
    }
    return nullptr;
}

std::span<const std::byte> bytesOf(const AVPacket& packet) {
    return std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size)));
}

std::uint32_t framesIn(const AVStream& stream, std::int64_t from, std::int64_t to) {
    const AVRational frame{1, stream.codecpar->sample_rate};
    const std::int64_t frames = distance(av_rescale_q(from, stream.time_base, frame),
                                         av_rescale_q(to, stream.time_base, frame));
    return static_cast<std::uint32_t>(
        std::min<std::int64_t>(frames, std::numeric_limits<std::int32_t>::max()));
}

std::uint32_t commonOpusFrameCount(const FfmpegInput& input) {
    if (input.fileType != kAudioFileOggType) {
        return input.firstPacket == nullptr ? 0 : opusFrameCount(bytesOf(*input.firstPacket));
    }
    constexpr std::uint64_t kFarthest = 262144;
    std::optional<std::uint32_t> common;
    OggPages pages;
    walkOgg(input, pages, [&](const OggPacket& packet) {
        const std::uint32_t frames = opusFrameCount(packet.start);
        const bool isCommon = frames == common.value_or(frames);
        common = isCommon ? frames : 0;
        return isCommon && packet.offset < kFarthest;
    });
    return common.value_or(0);
}

}  // namespace zav::detail
