#pragma once

#include <sndfile.h>

#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

/// The file types that libsndfile reads and writes for us, and its format codes for our format
/// records. Only encodings whose raw bytes are the samples themselves: PCM, float, A-law, mu-law.
namespace zav::detail {

struct PcmFileType {
    AudioFileTypeID fileType;
    int majorFormat;                     ///< SF_FORMAT_WAV and its like
    std::uint32_t mostLittleEndianBits;  ///< of integers; 0: none
    bool hasBigEndianIntegers;
    bool hasLittleEndianFloats;
    bool hasBigEndianFloats;
    bool hasLaws;           ///< A-law and mu-law
    bool has64BitSizes;     ///< otherwise the file ends at 4 GiB
    bool hasUnsignedBytes;  ///< 8-bit samples are unsigned, elsewhere signed
    bool hasMagicCookie;
};

std::span<const PcmFileType> pcmFileTypes();

/// Whether the format is one of those encodings, if not how.
bool isPcmFormat(const AudioStreamBasicDescription& format);

/// Null for a type that is not one of these.
const PcmFileType* findPcmFileType(AudioFileTypeID fileType);

/// libsndfile's code for audio of this format in a file of this type. Throws 'fmt?'.
int sndfileFormatFor(const PcmFileType& type, const AudioStreamBasicDescription& format);

/// The format record of an opened file. `isBigEndian` is its samples' byte order.
/// Throws 'fmt?' when its encoding is none of ours.
AudioStreamBasicDescription dataFormatOf(const SF_INFO& info, bool isBigEndian);

}  // namespace zav::detail
