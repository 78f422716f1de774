#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegWriter.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/core/OpusPacket.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

/// Upper limit, in bytes, for the packets that are held until a cookie is set.
constexpr std::size_t kMostHeldBytes = std::size_t{8} << 20U;

/// The usual lookahead of an encoder, 6.5 ms at 48 kHz.
constexpr std::uint16_t kOpusPreSkip = 312;

bool isMp4(AudioFileTypeID fileType) {
    return fileType == kAudioFileM4AType || fileType == kAudioFileMPEG4Type;
}

/// True if ADTS headers have codes for the rate and the channels.
bool adtsHas(const AudioStreamBasicDescription& format) {
    constexpr std::size_t kConfigOfCodes = 2;
    return makeAudioSpecificConfig(static_cast<std::uint32_t>(format.mSampleRate),
                                   format.mChannelsPerFrame)
               .size() == kConfigOfCodes;
}

void requireFormat(AudioFileTypeID fileType, const AudioStreamBasicDescription& format) {
    constexpr double kHighestRate = 768000;
    constexpr std::uint32_t kMostChannels = 8;
    constexpr std::uint32_t kMostOpusChannels = 2;
    const AVCodecID codec = codecOf(format.mFormatID);
    const AVOutputFormat* const muxer =
        canWrite(fileType, codec) ? av_guess_format(muxerOf(fileType), nullptr, nullptr) : nullptr;
    const bool isRate = format.mSampleRate >= 1 && format.mSampleRate <= kHighestRate &&
                        format.mSampleRate == std::floor(format.mSampleRate);
    if (muxer == nullptr || avformat_query_codec(muxer, codec, FF_COMPLIANCE_NORMAL) == 0 ||
        !isRate || format.mChannelsPerFrame < 1 || format.mChannelsPerFrame > kMostChannels ||
        (codec == AV_CODEC_ID_OPUS && format.mChannelsPerFrame > kMostOpusChannels) ||
        (fileType == kAudioFileAAC_ADTSType && !adtsHas(format))) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
}

AVDictionary* optionsFor(AudioFileTypeID fileType, bool hasPackets) {
    AVDictionary* options = nullptr;
    switch (fileType) {
        case kAudioFileM4AType:
        case kAudioFileMPEG4Type:
            if (!hasPackets) {
                // Without packets there are no fragments, and libavformat would leak memory.
                break;
            }
            // The header is written with the first fragment, so a cookie can be set until then. A
            // fragment ends where we flush.
            av_dict_set(&options, "movflags",
                        "frag_custom+empty_moov+delay_moov+default_base_moof+skip_trailer", 0);
            break;
        case kAudioFileMP3Type:
            // The file gets a Xing header but no tags. The Xing header contains the number of
            // packets. Without that number, programs have to guess the duration.
            av_dict_set(&options, "id3v2_version", "0", 0);
            break;
        case kAudioFileOggType:
            // The default serial number is 0, which some tools reject.
            av_dict_set(&options, "serial_offset", "1", 0);
            break;
        default:
            break;
    }
    return options;
}

}  // namespace

std::unique_ptr<AudioFileWriter> createFfmpegFile(const std::filesystem::path& path,
                                                  FileHandle::IfExists ifExists,
                                                  AudioFileTypeID fileType,
                                                  const AudioStreamBasicDescription& dataFormat) {
    if (muxerOf(fileType) == nullptr) {
        return nullptr;
    }
    requireFormat(fileType, dataFormat);
    return std::make_unique<FfmpegWriter>(FileHandle::create(path, ifExists), fileType, dataFormat);
}

FfmpegWriter::FfmpegWriter(FileHandle file, AudioFileTypeID fileType,
                           const AudioStreamBasicDescription& dataFormat)
    : AudioFileWriter(fileType, dataFormat),
      codec_(codecOf(dataFormat.mFormatID)),
      rate_(codec_ == AV_CODEC_ID_OPUS ? kOpusRate
                                       : static_cast<std::uint32_t>(dataFormat.mSampleRate)),
      io_(std::move(file), AvioFile::Access::write) {}

double FfmpegWriter::durationInSeconds() {
    return static_cast<double>(frameCount_) / rate_;
}

bool FfmpegWriter::takesMagicCookie() const {
    return detail::hasMagicCookie(codec_);
}

std::uint32_t FfmpegWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
                                         const AudioStreamPacketDescription* descriptions,
                                         const void* buffer) {
    if (firstPacket != packetCount_) {
        throw StatusFailure(kAudioFileInvalidPacketOffsetError);
    }
    const std::span bytes(static_cast<const std::byte*>(buffer), run.byteCount);
    if (descriptions != nullptr) {
        const std::span places(descriptions, run.packetCount);
        const bool areInside = std::all_of(places.begin(), places.end(), [&](const auto& place) {
            return place.mDataByteSize > 0 && place.mStartOffset >= 0 &&
                   place.mStartOffset <= std::int64_t{run.byteCount} - place.mDataByteSize;
        });
        if (!areInside) {
            throw StatusFailure(kAudioFileParameterError);
        }
        for (const AudioStreamPacketDescription& place : places) {
            writePacket(
                bytes.subspan(static_cast<std::size_t>(place.mStartOffset), place.mDataByteSize),
                place.mVariableFramesInPacket);
        }
        return run.packetCount;
    }
    const std::uint32_t constantSize = dataFormat().mBytesPerPacket;
    const std::uint32_t size = constantSize != 0 ? constantSize : run.byteCount;
    if (run.byteCount % size != 0 || (constantSize == 0 && run.packetCount > 1)) {
        throw StatusFailure(kAudioFileParameterError);
    }
    for (std::uint32_t offset = 0; offset < run.byteCount; offset += size) {
        writePacket(bytes.subspan(offset, size), 0);
    }
    return run.byteCount / size;
}

void FfmpegWriter::writePacket(std::span<const std::byte> packet, std::uint32_t describedFrames) {
    if (codec_ == AV_CODEC_ID_AAC) {
        if (extradata_.empty()) {
            extradata_ = audioSpecificConfigOfAdts(packet);
        }
        packet = packet.subspan(adtsHeaderSize(packet));
    }
    if (context_ == nullptr && !canStart()) {
        hold(packet, describedFrames);
    } else {
        if (context_ == nullptr) {
            start(true);
        }
        put(packet, describedFrames);
    }
    ++packetCount_;
    byteCount_ += packet.size();
    largestPacket_ = std::max(largestPacket_, static_cast<std::uint32_t>(packet.size()));
}

bool FfmpegWriter::canStart() const {
    return !extradata_.empty() || codec_ == AV_CODEC_ID_AAC || codec_ == AV_CODEC_ID_OPUS ||
           !takesMagicCookie();
}

void FfmpegWriter::hold(std::span<const std::byte> packet, std::uint32_t describedFrames) {
    if (packet.size() > kMostHeldBytes - heldBytes_) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
    held_.push_back({{packet.begin(), packet.end()}, describedFrames});
    heldBytes_ += packet.size();
}

void FfmpegWriter::start(bool hasPackets) {
    const AudioStreamBasicDescription& format = dataFormat();
    if (extradata_.empty() && codec_ == AV_CODEC_ID_AAC) {
        extradata_ = makeAudioSpecificConfig(rate_, format.mChannelsPerFrame);
        if (extradata_.empty()) {
            throw StatusFailure(kAudioFileUnsupportedDataFormatError);
        }
    } else if (extradata_.empty() && codec_ == AV_CODEC_ID_OPUS) {
        extradata_ = makeOpusHead(format.mChannelsPerFrame, kOpusPreSkip,
                                  static_cast<std::uint32_t>(format.mSampleRate));
    }
    FormatContext context = makeFormatContext(io_.context());
    context->oformat = av_guess_format(muxerOf(fileType()), nullptr, nullptr);
    context->flags |= AVFMT_FLAG_BITEXACT;  // leaves out dates, versions and random numbers
    context->flags &= ~AVFMT_FLAG_AUTO_BSF;
    context->flush_packets = 0;  // `flush` does it
    // Opus begins with priming before time 0.
    context->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    AVStream* const stream = avformat_new_stream(context.get(), nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = codec_;
    parameters.sample_rate = static_cast<int>(rate_);
    parameters.frame_size = static_cast<int>(format.mFramesPerPacket);
    parameters.ch_layout = usualLayout(format.mChannelsPerFrame);
    if (codec_ == AV_CODEC_ID_OPUS) {
        parameters.initial_padding = static_cast<int>(opusPreSkip(extradata_));
    }
    setExtradata(parameters, codec_ == AV_CODEC_ID_FLAC ? streamInfoOf(0) : extradata_);
    stream->time_base = {1, static_cast<int>(rate_)};

    AVDictionary* options = optionsFor(fileType(), hasPackets);
    const int result = avformat_write_header(context.get(), &options);
    av_dict_free(&options);
    check(result);
    duration_.emplace(codec_, format.mFramesPerPacket, extradata_);
    context_ = std::move(context);
}

void FfmpegWriter::put(std::span<const std::byte> packet, std::uint32_t describedFrames) {
    Packet sent = makePacket();
    if (av_new_packet(sent.get(), static_cast<int>(packet.size())) < 0) {
        throw std::bad_alloc();
    }
    std::memcpy(sent->data, packet.data(), packet.size());
    // An Opus packet contains its exact duration. The described duration can be in frames at
    // another rate.
    const std::uint32_t framesOfPacket = duration_->frameCount(packet);
    const std::uint32_t frames =
        describedFrames != 0 && codec_ != AV_CODEC_ID_OPUS ? describedFrames : framesOfPacket;
    // Flushes before a packet, not after one, so that the last page of an Ogg file is not empty.
    if (frameCount_ > flushedFrameCount_ && frameCount_ - flushedFrameCount_ + frames > rate_) {
        flush();
    }
    sent->pts =
        static_cast<std::int64_t>(frameCount_) - context_->streams[0]->codecpar->initial_padding;
    sent->duration = frames;
    send(*sent);
    frameCount_ += frames;
}

void FfmpegWriter::send(AVPacket& packet) {
    packet.dts = packet.pts;
    packet.flags |= AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(&packet, {1, static_cast<int>(rate_)}, context_->streams[0]->time_base);
    check(av_write_frame(context_.get(), &packet));
}

void FfmpegWriter::flush() {
    // Ends an MP4 fragment or an Ogg page. Other types ignore it.
    check(av_write_frame(context_.get(), nullptr));
    io_.flush();
    flushedFrameCount_ = frameCount_;
}

void FfmpegWriter::check(int result) {
    io_.throwFileError();
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    if (result < 0) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
}

void FfmpegWriter::setMagicCookie(std::span<const std::byte> cookie) {
    if (!takesMagicCookie()) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }
    std::vector<std::byte> extradata = extradataOfCookie(codec_, cookie);
    if (context_ != nullptr && extradata != extradata_) {
        changeCookie(std::move(extradata));
    } else {
        extradata_ = std::move(extradata);
    }
    cookie_.assign(cookie.begin(), cookie.end());
    if (!held_.empty()) {
        start(true);
        for (const HeldPacket& packet : std::exchange(held_, {})) {
            put(packet.bytes, packet.frameCount);
        }
        heldBytes_ = 0;
    }
}

void FfmpegWriter::changeCookie(std::vector<std::byte> extradata) {
    constexpr std::ptrdiff_t kAdtsFields = 2;
    const bool isBeforeFirstFragment = isMp4(fileType()) && flushedFrameCount_ == 0;
    if (isBeforeFirstFragment) {
        sendExtradata(extradata);
    } else if (fileType() == kAudioFileAAC_ADTSType
                   ? extradata.size() < kAdtsFields ||
                         !std::equal(extradata.begin(), extradata.begin() + kAdtsFields,
                                     extradata_.begin())
                   : fileType() != kAudioFileFLACType) {
        throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }
    extradata_ = std::move(extradata);
}

void FfmpegWriter::sendExtradata(std::span<const std::byte> extradata) {
    const Packet nothing = makePacket();
    std::uint8_t* const data =
        av_packet_new_side_data(nothing.get(), AV_PKT_DATA_NEW_EXTRADATA, extradata.size());
    if (data == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(data, extradata.data(), extradata.size());
    // Times must increase. The previous packet is longer than one frame. So this time lies between
    // the start of the previous packet and the start of the next packet.
    nothing->pts = static_cast<std::int64_t>(frameCount_) - 1;
    send(*nothing);
}

std::vector<std::byte> FfmpegWriter::streamInfoOf(std::uint64_t frameCount) const {
    constexpr std::size_t kCount = 10;  // in the low 36 bits of 64
    constexpr std::uint64_t kCountMask = (std::uint64_t{1} << 36U) - 1;
    constexpr std::size_t kChecksum = 18;
    std::vector<std::byte> streamInfo = extradata_;
    const auto field = std::span(streamInfo).subspan(kCount, sizeof(std::uint64_t));
    const std::uint64_t old = bigEndianAt(field);
    if (frameCount == 0 || (old & kCountMask) != frameCount) {
        std::fill(streamInfo.begin() + kChecksum, streamInfo.end(), std::byte{0});
    }
    putBigEndian(field, (old & ~kCountMask) | (frameCount & kCountMask));
    return streamInfo;
}

void FfmpegWriter::finish() {
    if (context_ == nullptr) {
        if (!canStart()) {
            throw StatusFailure(kAudioFileUnsupportedDataFormatError);
        }
        start(false);
    }
    if (fileType() == kAudioFileFLACType) {
        sendExtradata(streamInfoOf(frameCount_));
    }
    check(av_write_trailer(context_.get()));
    context_.reset();
    io_.flush();
    io_.file().close();
}

}  // namespace zav::detail
