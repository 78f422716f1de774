#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

// The table leaves out formats that common readers misread or cannot read: big-endian WAVE
// ('RIFX'), little-endian AU, and little-endian integers of more than 16 bits in AIFC (libsndfile's
// codes '42n1' and '23ni'). Little-endian floats in AIFC have no code at all.
constexpr std::array<PcmFileType, 7> kPcmFileTypes = {{
    {.fileType = kAudioFileWAVEType,
     .majorFormat = SF_FORMAT_WAV,
     .mostLittleEndianBits = 32,
     .hasLittleEndianFloats = true,
     .hasLaws = true,
     .hasUnsignedBytes = true},
    {.fileType = kAudioFileRF64Type,
     .majorFormat = SF_FORMAT_RF64,
     .mostLittleEndianBits = 32,
     .hasLittleEndianFloats = true,
     .hasLaws = true,
     .has64BitSizes = true,
     .hasUnsignedBytes = true},
    {.fileType = kAudioFileWave64Type,
     .majorFormat = SF_FORMAT_W64,
     .mostLittleEndianBits = 32,
     .hasLittleEndianFloats = true,
     .hasLaws = true,
     .has64BitSizes = true,
     .hasUnsignedBytes = true},
    {.fileType = kAudioFileAIFFType, .majorFormat = SF_FORMAT_AIFF, .hasBigEndianIntegers = true},
    {.fileType = kAudioFileAIFCType,
     .majorFormat = SF_FORMAT_AIFF,
     .mostLittleEndianBits = 16,
     .hasBigEndianIntegers = true,
     .hasBigEndianFloats = true,
     .hasLaws = true,
     .hasUnsignedBytes = true},
    {.fileType = kAudioFileCAFType,
     .majorFormat = SF_FORMAT_CAF,
     .mostLittleEndianBits = 32,
     .hasBigEndianIntegers = true,
     .hasLittleEndianFloats = true,
     .hasBigEndianFloats = true,
     .hasLaws = true,
     .has64BitSizes = true,
     .hasMagicCookie = true},
    {.fileType = kAudioFileNextType,
     .majorFormat = SF_FORMAT_AU,
     .hasBigEndianIntegers = true,
     .hasBigEndianFloats = true,
     .hasLaws = true},
}};

[[noreturn]] void refuseFormat() {
    throw StatusFailure(kAudioFileUnsupportedDataFormatError);
}

int integerSubtype(const PcmFileType& type, const AudioStreamBasicDescription& format) {
    const bool isSigned = (format.mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0;
    const bool isBigEndian = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if (format.mBitsPerChannel == 8) {
        if (isSigned == type.hasUnsignedBytes) {
            refuseFormat();
        }
        return isSigned ? SF_FORMAT_PCM_S8 : SF_FORMAT_PCM_U8;
    }
    const bool hasOrder = isBigEndian ? type.hasBigEndianIntegers
                                      : format.mBitsPerChannel <= type.mostLittleEndianBits;
    if (!isSigned || !hasOrder) {
        refuseFormat();
    }
    switch (format.mBitsPerChannel) {
        case 16:
            return SF_FORMAT_PCM_16;
        case 24:
            return SF_FORMAT_PCM_24;
        case 32:
            return SF_FORMAT_PCM_32;
        default:
            refuseFormat();
    }
}

int subtypeFor(const PcmFileType& type, const AudioStreamBasicDescription& format) {
    if (format.mFormatID == kAudioFormatALaw || format.mFormatID == kAudioFormatULaw) {
        if (!type.hasLaws || format.mBitsPerChannel != 8) {
            refuseFormat();
        }
        return format.mFormatID == kAudioFormatALaw ? SF_FORMAT_ALAW : SF_FORMAT_ULAW;
    }
    if (format.mFormatID != kAudioFormatLinearPCM) {
        refuseFormat();
    }
    if ((format.mFormatFlags & kAudioFormatFlagIsFloat) == 0) {
        return integerSubtype(type, format);
    }
    const bool isBigEndian = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if (!(isBigEndian ? type.hasBigEndianFloats : type.hasLittleEndianFloats)) {
        refuseFormat();
    }
    switch (format.mBitsPerChannel) {
        case 32:
            return SF_FORMAT_FLOAT;
        case 64:
            return SF_FORMAT_DOUBLE;
        default:
            refuseFormat();
    }
}

// libsndfile has one format for AIFF and AIFC. It writes integers as AIFC if they have a byte
// order, and as AIFF otherwise. It always writes other encodings as AIFC, and it refuses a byte
// order for them. CAF needs a byte order for every encoding.
int endianFor(const PcmFileType& type, const AudioStreamBasicDescription& format, int subtype) {
    const bool hasBothOrders = type.mostLittleEndianBits > 0 && type.hasBigEndianIntegers;
    const bool isWideInteger =
        subtype == SF_FORMAT_PCM_16 || subtype == SF_FORMAT_PCM_24 || subtype == SF_FORMAT_PCM_32;
    if (!hasBothOrders || (type.majorFormat == SF_FORMAT_AIFF && !isWideInteger)) {
        return SF_ENDIAN_FILE;
    }
    const bool isBigEndian = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    return isBigEndian ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE;
}

}  // namespace

std::span<const PcmFileType> pcmFileTypes() {
    return kPcmFileTypes;
}

bool isPcmFormat(const AudioStreamBasicDescription& format) {
    return format.mFormatID == kAudioFormatLinearPCM || format.mFormatID == kAudioFormatALaw ||
           format.mFormatID == kAudioFormatULaw;
}

const PcmFileType* findPcmFileType(AudioFileTypeID fileType) {
    const auto* const found =
        std::find_if(kPcmFileTypes.begin(), kPcmFileTypes.end(),
                     [fileType](const PcmFileType& type) { return type.fileType == fileType; });
    return found == kPcmFileTypes.end() ? nullptr : found;
}

int sndfileFormatFor(const PcmFileType& type, const AudioStreamBasicDescription& format) {
    // libsndfile stores rates as int.
    constexpr double kHighestRate = std::numeric_limits<int>::max();
    const bool isWholeRate = format.mSampleRate >= 1 && format.mSampleRate <= kHighestRate &&
                             format.mSampleRate == std::floor(format.mSampleRate);
    const std::uint64_t frameSize =
        std::uint64_t{format.mBitsPerChannel / 8} * format.mChannelsPerFrame;
    const bool isPacked = format.mBytesPerFrame == frameSize &&
                          format.mBytesPerPacket == frameSize && format.mFramesPerPacket == 1;
    if (!isWholeRate || !isPacked || frameSize == 0) {
        refuseFormat();
    }
    SF_INFO info{};
    info.samplerate = static_cast<int>(format.mSampleRate);
    info.channels = static_cast<int>(format.mChannelsPerFrame);
    const int subtype = subtypeFor(type, format);
    info.format = type.majorFormat | subtype | endianFor(type, format, subtype);
    if (sf_format_check(&info) == 0) {
        refuseFormat();
    }
    return info.format;
}

AudioStreamBasicDescription dataFormatOf(const SF_INFO& info, bool isBigEndian) {
    AudioStreamBasicDescription format;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagIsSignedInteger;
    switch (info.format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_U8:
            format.mBitsPerChannel = 8;
            format.mFormatFlags = kAudioFormatFlagIsPacked;
            break;
        case SF_FORMAT_PCM_S8:
            format.mBitsPerChannel = 8;
            break;
        case SF_FORMAT_PCM_16:
            format.mBitsPerChannel = 16;
            break;
        case SF_FORMAT_PCM_24:
            format.mBitsPerChannel = 24;
            break;
        case SF_FORMAT_PCM_32:
            format.mBitsPerChannel = 32;
            break;
        case SF_FORMAT_FLOAT:
            format.mBitsPerChannel = 32;
            format.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagIsFloat;
            break;
        case SF_FORMAT_DOUBLE:
            format.mBitsPerChannel = 64;
            format.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagIsFloat;
            break;
        case SF_FORMAT_ALAW:
            format.mFormatID = kAudioFormatALaw;
            format.mBitsPerChannel = 8;
            format.mFormatFlags = 0;
            break;
        case SF_FORMAT_ULAW:
            format.mFormatID = kAudioFormatULaw;
            format.mBitsPerChannel = 8;
            format.mFormatFlags = 0;
            break;
        default:
            refuseFormat();
    }
    if (isBigEndian && format.mBitsPerChannel > 8) {
        format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    }
    format.mSampleRate = info.samplerate;
    format.mChannelsPerFrame = static_cast<std::uint32_t>(info.channels);
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBitsPerChannel / 8 * format.mChannelsPerFrame;
    format.mBytesPerPacket = format.mBytesPerFrame;
    return format;
}

}  // namespace zav::detail
