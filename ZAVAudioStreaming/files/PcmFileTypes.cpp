#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

// Left out on purpose: what common readers take for something else or cannot read, that is
// big-endian WAVE ('RIFX'), little-endian AU, little-endian integers of more than 16 bits in AIFC
// (libsndfile's codes '42n1' and '23ni'); and little-endian floats in AIFC, which have no code.
constexpr std::array<PcmFileType, 7> kPcmFileTypes = {{
    // type, libsndfile's format, LE integer bits, BE integers, LE floats, BE floats, laws,
    // 64-bit sizes, unsigned bytes, cookie
    {kAudioFileWAVEType, SF_FORMAT_WAV, 32, false, true, false, true, false, true, false},
    {kAudioFileRF64Type, SF_FORMAT_RF64, 32, false, true, false, true, true, true, false},
    {kAudioFileWave64Type, SF_FORMAT_W64, 32, false, true, false, true, true, true, false},
    {kAudioFileAIFFType, SF_FORMAT_AIFF, 0, true, false, false, false, false, false, false},
    {kAudioFileAIFCType, SF_FORMAT_AIFF, 16, true, false, true, true, false, true, false},
    {kAudioFileCAFType, SF_FORMAT_CAF, 32, true, true, true, true, true, false, true},
    {kAudioFileNextType, SF_FORMAT_AU, 0, true, false, true, true, false, false, false},
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

// AIFF and AIFC are one format to libsndfile: integers with a byte order become the form AIFC,
// without one AIFF; what only AIFC can hold becomes AIFC by itself and must not have one. CAF needs
// one for everything.
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
    // libsndfile keeps rates as int.
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
