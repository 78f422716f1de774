#pragma once

#include <sndfile.h>

#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

/// The file types that libsndfile reads and writes, and its format codes for our format records.
/// They include only encodings whose raw bytes are the samples themselves: PCM, float, A-law,
/// mu-law.
namespace zav::detail {

/// What a file type can hold.
struct PcmFileType {
    AudioFileTypeID fileType;
    int majorFormat;  ///< libsndfile's code, such as SF_FORMAT_WAV
    /// Bits of the widest little-endian integers; 0 if the type has none.
    std::uint32_t mostLittleEndianBits = 0;
    bool hasBigEndianIntegers = false;
    bool hasLittleEndianFloats = false;
    bool hasBigEndianFloats = false;
    bool hasLaws = false;           ///< A-law and mu-law
    bool has64BitSizes = false;     ///< otherwise a file ends at 4 GiB
    bool hasUnsignedBytes = false;  ///< 8-bit samples are unsigned, otherwise signed
    bool hasMagicCookie = false;
};

std::span<const PcmFileType> pcmFileTypes();

/// True for PCM, float, A-law and mu-law with any parameters.
bool isPcmFormat(const AudioStreamBasicDescription& format);

/// Null if the type is not in the table.
const PcmFileType* findPcmFileType(AudioFileTypeID fileType);

/// libsndfile's code for audio of this format in a file of this type. Throws 'fmt?' if the type
/// cannot hold the format.
int sndfileFormatFor(const PcmFileType& type, const AudioStreamBasicDescription& format);

/// The format record of an open file. `isBigEndian` is the byte order of its samples. Throws 'fmt?'
/// if the encoding is not PCM, float, A-law or mu-law.
AudioStreamBasicDescription dataFormatOf(const SF_INFO& info, bool isBigEndian);

}  // namespace zav::detail
