#pragma once

#include <cstdint>
#include <filesystem>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// The audio file service: typed audio files, read and written as packets, never decoded. These are
/// the platform's functions by their own names. The folder `files` implements them here; a port
/// implements them itself.
///
/// Every function returns a status, 0 for success, and throws nothing. A call that fails leaves its
/// out-parameters untouched unless its comment says otherwise.
///
/// The library itself reads and writes SBC, and linear PCM, float, A-law and mu-law in WAVE, RF64,
/// Wave64, AIFF, AIFC, CAF and AU. The other types, and compressed audio in CAF, need a module. The
/// module is loaded on first use. If it is not installed, these types are unknown:
///
///     MPG3   MPEG-1/2 layer 3; layers 1 and 2 can be read
///     adts   AAC; packets are read and written without their ADTS headers
///     m4af   AAC, ALAC
///     mp4f   AAC, ALAC, MP3, Opus, AC-3; in a video file, the first audio track is read
///     caff   ALAC, MP3; AAC and other formats of CAF can be read
///     flac, ac-3, amrf (narrow band)
///     Oggf   Opus (mono, stereo), Vorbis, FLAC; of several streams, the first one is read
///
/// A packet is the codec's own unit. Packets that only prime or flush a decoder are counted and
/// read like all others. If the file declares the frames of such packets, durations do not include
/// those frames.
///
/// Magic cookies are read in their bare form: AAC's AudioSpecificConfig, ALAC's 24 bytes of
/// configuration, FLAC's 34 bytes of STREAMINFO, Opus' identification header, and Vorbis' three
/// headers in Xiph's lacing (a byte 2, two sizes, the headers). The other formats have none. For
/// ALAC and FLAC, the flags of the format record hold the depth of the samples if it is 16, 20, 24
/// or 32 bits.
///
/// Threads: one thread at a time for one file; different files are independent.
namespace zav {

/// An open file.
using AudioFileID = struct OpaqueAudioFileID*;

using AudioFileTypeID = std::uint32_t;
using AudioFilePropertyID = std::uint32_t;

/// How a file is opened. Only `AudioFileCreateWithURL` makes a file that can be written.
enum AudioFilePermissions : std::int8_t { kAudioFileReadPermission = 1 };

enum AudioFileFlags : std::uint32_t { kAudioFileFlags_EraseFile = 1 };

inline constexpr AudioFileTypeID kAudioFileWAVEType = fourCharCode("WAVE");
inline constexpr AudioFileTypeID kAudioFileRF64Type = fourCharCode("RF64");
inline constexpr AudioFileTypeID kAudioFileWave64Type = fourCharCode("W64f");
inline constexpr AudioFileTypeID kAudioFileAIFFType = fourCharCode("AIFF");
inline constexpr AudioFileTypeID kAudioFileAIFCType = fourCharCode("AIFC");
inline constexpr AudioFileTypeID kAudioFileCAFType = fourCharCode("caff");
inline constexpr AudioFileTypeID kAudioFileNextType = fourCharCode("NeXT");  ///< AU
inline constexpr AudioFileTypeID kAudioFileMP3Type = fourCharCode("MPG3");
inline constexpr AudioFileTypeID kAudioFileAAC_ADTSType = fourCharCode("adts");
inline constexpr AudioFileTypeID kAudioFileM4AType = fourCharCode("m4af");
inline constexpr AudioFileTypeID kAudioFileMPEG4Type = fourCharCode("mp4f");
inline constexpr AudioFileTypeID kAudioFileFLACType = fourCharCode("flac");
inline constexpr AudioFileTypeID kAudioFileAC3Type = fourCharCode("ac-3");
inline constexpr AudioFileTypeID kAudioFileAMRType = fourCharCode("amrf");
/// Opus, Vorbis or FLAC in Ogg. This code is our own.
inline constexpr AudioFileTypeID kAudioFileOggType = fourCharCode("Oggf");
/// SBC frames one after the other, without a file header. This code is our own.
inline constexpr AudioFileTypeID kAudioFileSBCType = fourCharCode("sbc ");

/// Properties, with the type of their value.
/// The stream's format: AudioStreamBasicDescription.
inline constexpr AudioFilePropertyID kAudioFilePropertyDataFormat = fourCharCode("dfmt");
/// The file's type: AudioFileTypeID.
inline constexpr AudioFilePropertyID kAudioFilePropertyFileFormat = fourCharCode("ffmt");
/// An upper bound of the packets' sizes, in bytes: std::uint32_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketSizeUpperBound = fourCharCode("pkub");
/// Bytes of the largest packet: std::uint32_t. This property, the bound above, the counts and the
/// duration below need the packets' places. If the header does not list the places, the first such
/// request reads through the whole file.
inline constexpr AudioFilePropertyID kAudioFilePropertyMaximumPacketSize = fourCharCode("psze");
/// Packets in the file: std::uint64_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataPacketCount = fourCharCode("pcnt");
/// Bytes of audio in the file, headers excluded: std::uint64_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataByteCount = fourCharCode("bcnt");
/// Bytes that a decoder needs in addition to the format. They can have any length. The status is
/// 'pty?' if the file has no cookie.
inline constexpr AudioFilePropertyID kAudioFilePropertyMagicCookieData = fourCharCode("mgic");
/// Seconds of audio: double. Priming and padding are left out if the file declares them. For a file
/// that is being written, the value is the seconds so far, with nothing left out.
inline constexpr AudioFilePropertyID kAudioFilePropertyEstimatedDuration = fourCharCode("edur");

/// Properties of the service itself, for `AudioFileGetGlobalInfo`: arrays of AudioFileTypeID.
/// Types that can be read with the modules that are installed.
inline constexpr AudioFilePropertyID kAudioFileGlobalInfo_ReadableTypes = fourCharCode("afrf");
/// Types that can be written with the modules that are installed.
inline constexpr AudioFilePropertyID kAudioFileGlobalInfo_WritableTypes = fourCharCode("afwf");

/// The service's own statuses. System errors become the platform's file manager codes below.
constexpr OSStatus audioFileStatus(const char (&text)[5]) {
    return static_cast<OSStatus>(fourCharCode(text));
}
inline constexpr OSStatus kAudioFileUnspecifiedError = audioFileStatus("wht?");
inline constexpr OSStatus kAudioFileUnsupportedFileTypeError = audioFileStatus("typ?");
inline constexpr OSStatus kAudioFileUnsupportedDataFormatError = audioFileStatus("fmt?");
inline constexpr OSStatus kAudioFileUnsupportedPropertyError = audioFileStatus("pty?");
inline constexpr OSStatus kAudioFileBadPropertySizeError = audioFileStatus("!siz");
inline constexpr OSStatus kAudioFilePermissionsError = audioFileStatus("prm?");
inline constexpr OSStatus kAudioFileDoesNotAllow64BitDataSizeError = audioFileStatus("off?");
inline constexpr OSStatus kAudioFileInvalidPacketOffsetError = audioFileStatus("pck?");
inline constexpr OSStatus kAudioFileInvalidFileError = audioFileStatus("dta?");

inline constexpr OSStatus kAudioFileDiskFullError = -34;
inline constexpr OSStatus kAudioFileIOError = -36;
inline constexpr OSStatus kAudioFileNotOpenError = -38;
inline constexpr OSStatus kAudioFilePositionError = -40;
inline constexpr OSStatus kAudioFileTooManyOpenError = -42;
inline constexpr OSStatus kAudioFileFileNotFoundError = -43;
inline constexpr OSStatus kAudioFileWriteProtectedError = -44;
inline constexpr OSStatus kAudioFileExistsError = -48;
inline constexpr OSStatus kAudioFileParameterError = -50;
inline constexpr OSStatus kAudioFilePermissionDeniedError = -54;
inline constexpr OSStatus kAudioFileMemoryError = -108;
inline constexpr OSStatus kAudioFileNotAFileError = -1302;

/// Opens an audio file for reading. Its first bytes decide the type; the hint is ignored.
///
/// Errors: -43 no such file, -1302 a folder or a pipe, -54 no permission, 'prm?' a permission other
/// than reading, 'typ?' an unknown file type, 'fmt?' a known file type with audio that the service
/// does not read, 'dta?' a broken file.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileOpenURL(const std::filesystem::path& inFileRef,
                                                   AudioFilePermissions inPermissions,
                                                   AudioFileTypeID inFileTypeHint,
                                                   AudioFileID* outAudioFile);

/// Creates an audio file of the given type for audio of the given format. With
/// `kAudioFileFlags_EraseFile`, the new file replaces an existing one. If the type or format is
/// refused, the existing file stays untouched.
///
/// The file exists when this call returns. If the process dies, all audio except the last second
/// can be read. Compressed CAF is the exception: such a file can only be read after it was closed.
///
/// For a compressed format the record needs the rate (a whole number), the format ID and the
/// channels. It also needs `mFramesPerPacket`, unless each packet contains its own duration (Opus,
/// Vorbis, FLAC).
///
/// Errors: 'typ?' an unknown type, 'fmt?' a format that the type cannot hold, -48 the file exists
/// and the erase flag is not set, -43 no such folder, -1302 a folder, -54 no permission, -44 a
/// read-only file system, -34 disk full.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileCreateWithURL(
    const std::filesystem::path& inFileRef, AudioFileTypeID inFileType,
    const AudioStreamBasicDescription* inFormat, AudioFileFlags inFlags, AudioFileID* outAudioFile);

/// Completes a file that was written, closes it, and frees the ID even on failure.
///
/// Errors: 'fmt?' the format needs a cookie and none was set, -34 disk full, -36 a disk error.
ZAV_EXPORT OSStatus AudioFileClose(AudioFileID inAudioFile);

/// Reads whole packets, starting with `inStartingPacket`. Stops after the requested number of
/// packets, at the end of the buffer, or at the end of the file. Reading at or after the end of the
/// file returns no packets and is not an error.
///
/// ioNumBytes              in: bytes in `outBuffer`; out: bytes read
/// outPacketDescriptions   null, or room for `*ioNumPackets` records; out: the packets' places in
///                         `outBuffer`
/// ioNumPackets            in: packets requested; out: packets read
///
/// Errors: 'prm?' a file that is being written, 'pck?' a negative packet index, 'dta?' broken data
/// where the next packet should be, -36 a disk error.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileReadPacketData(
    AudioFileID inAudioFile, bool inUseCache, std::uint32_t* ioNumBytes,
    AudioStreamPacketDescription* outPacketDescriptions, std::int64_t inStartingPacket,
    std::uint32_t* ioNumPackets, void* outBuffer);

/// Writes packets. The first one gets the index `inStartingPacket`.
///
/// If packets have a constant size, `inNumBytes` determines their number. `*ioNumPackets` is
/// ignored on entry, because a decoder passes the number of codec frames there, not the number of
/// PCM packets. On return, `*ioNumPackets` is the number of packets written.
///
/// If the audio is PCM, float, A-law or mu-law, an index before the end overwrites packets, and an
/// index beyond the end leaves silence in between. For all other audio, both return 'pck?'.
///
/// Packets of varying size need descriptions, unless all bytes are a single packet. SBC packets
/// need none, because they contain their own sizes. In a description, `mVariableFramesInPacket` is
/// the duration, in frames, of a packet with an unusual duration, such as the last packet. AAC
/// packets can have ADTS headers. These headers are removed.
///
/// Errors: 'prm?' a file that was opened for reading; 'pck?' an index that the type does not allow;
/// -50 bytes that are not whole packets, descriptions that reach outside the bytes, or an empty
/// packet; 'fmt?' packets that the type cannot hold, or more than 8 MiB of packets that wait for a
/// cookie; 'off?' more bytes than the type can hold (4 GiB in WAVE, AIFF, AIFC and AU); -34 disk
/// full. After an error `*ioNumPackets` is 0, but some of the bytes may have been written.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileWritePackets(
    AudioFileID inAudioFile, bool inUseCache, std::uint32_t inNumBytes,
    const AudioStreamPacketDescription* inPacketDescriptions, std::int64_t inStartingPacket,
    std::uint32_t* ioNumPackets, const void* inBuffer);

/// Returns the size of a property's value in bytes, and 1 in `*isWritable` if it can be set. Either
/// pointer can be null.
///
/// Errors: 'pty?' a property that the file does not have.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetPropertyInfo(AudioFileID inAudioFile,
                                                           AudioFilePropertyID inPropertyID,
                                                           std::uint32_t* outDataSize,
                                                           std::uint32_t* isWritable);

/// Copies a property's value.
///
/// ioDataSize        in: bytes in `outPropertyData`; out: bytes of the value
///
/// Errors: 'pty?' a property that the file does not have, '!siz' too little room.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetProperty(AudioFileID inAudioFile,
                                                       AudioFilePropertyID inPropertyID,
                                                       std::uint32_t* ioDataSize,
                                                       void* outPropertyData);

/// Sets a property. Only the magic cookie of a file that is being written can be set. The type must
/// store a cookie for the format: for PCM, only CAF does; for AAC, ALAC, FLAC, Opus and Vorbis,
/// every type that takes the format does.
///
/// The bare forms are accepted. So are AAC's ES descriptor, ALAC's configuration as an atom (36
/// bytes) or after a 'frma' atom (48 bytes), and FLAC's STREAMINFO after 'fLaC' (42 bytes).
///
/// Set the cookie before the first packet. If no cookie is set, AAC's cookie is made from rate and
/// channels (or from an ADTS header). Opus' cookie is made from the format record, with 6.5 ms of
/// encoder lookahead. ALAC, FLAC and Vorbis packets wait until their cookie is set. Some cookies
/// can still change after the first packet: FLAC's until the end, and AAC's in M4A and MP4 within
/// the first second. AAC's cookie in ADTS can also change, except for the fields that ADTS headers
/// contain.
///
/// Errors: 'pty?' a property of this file that cannot be set, or a cookie that is too late, 'prm?'
/// a file that was opened for reading, -50 bytes that are not a cookie of this format.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileSetProperty(AudioFileID inAudioFile,
                                                       AudioFilePropertyID inPropertyID,
                                                       std::uint32_t inDataSize,
                                                       const void* inPropertyData);

/// Returns the size in bytes of a value of `AudioFileGetGlobalInfo`. The specifier is ignored,
/// because no property here uses one.
///
/// Errors: 'pty?' an unknown property.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetGlobalInfoSize(AudioFilePropertyID inPropertyID,
                                                             std::uint32_t inSpecifierSize,
                                                             const void* inSpecifier,
                                                             std::uint32_t* outDataSize);

/// Returns the types that the service can read or write. It loads the module for compressed audio.
/// If a type from the constants above is missing, its module is not installed.
///
/// ioDataSize        in: bytes in `outPropertyData`; out: bytes of the value
///
/// Errors: 'pty?' an unknown property, '!siz' too little room.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetGlobalInfo(AudioFilePropertyID inPropertyID,
                                                         std::uint32_t inSpecifierSize,
                                                         const void* inSpecifier,
                                                         std::uint32_t* ioDataSize,
                                                         void* outPropertyData);

}  // namespace zav
