#pragma once

#include <cstdint>
#include <filesystem>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// The audio file service: typed audio files, read and written as packets that nobody decodes.
/// These are the platform's functions by their own names; `files` supplies them here, and
/// a port supplies its own.
///
/// Every function answers with a status, 0 for success, and throws nothing. Out-parameters are
/// untouched by a call that fails, unless its comment says otherwise.
///
/// Linear PCM, float, A-law and mu-law in WAVE, RF64, Wave64, AIFF, AIFC, CAF and AU, and SBC, are
/// part of the library. The other types, and compressed audio in CAF, need a module that is loaded
/// when it is first asked for; where it is not installed, they are types that nobody knows.
///
///     MPG3   MPEG-1/2 layer 3; layers 1 and 2 can be read
///     adts   AAC; packets come and go without their ADTS headers
///     m4af   AAC, ALAC
///     mp4f   AAC, ALAC, MP3, Opus, AC-3; of a file with pictures the first audio is read
///     caff   ALAC, MP3; AAC and what else CAF has can be read
///     flac, ac-3, amrf (narrow band)
///     Oggf   Opus (mono, stereo), Vorbis, FLAC; of several streams the first is read
///
/// A packet is what the codec calls one. The packets that only prime or end a decoder are packets
/// like all others; durations leave their frames out where the file tells of them.
///
/// Magic cookies are handed out bare: AAC's AudioSpecificConfig, ALAC's 24 bytes of configuration,
/// FLAC's 34 of STREAMINFO, Opus' identification header, and Vorbis' three headers in Xiph's lacing
/// (a byte 2, two sizes, the headers). The other formats have none. The records of ALAC and FLAC
/// tell the depth of the samples in their flags, if it is 16, 20, 24 or 32 bits.
///
/// Threads: one thread at a time for one file; different files are independent.
namespace zav {

/// An open file.
using AudioFileID = struct OpaqueAudioFileID*;

using AudioFileTypeID = std::uint32_t;
using AudioFilePropertyID = std::uint32_t;

/// What may be done with a file. Writing is by `AudioFileCreateWithURL` only.
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
/// Opus, Vorbis or FLAC in Ogg. Our own code: the platform has none.
inline constexpr AudioFileTypeID kAudioFileOggType = fourCharCode("Oggf");
/// SBC frames one after the other, without a header. Our own code: the platform has none.
inline constexpr AudioFileTypeID kAudioFileSBCType = fourCharCode("sbc ");

/// Properties, with the type of their value.
/// The stream's format: AudioStreamBasicDescription.
inline constexpr AudioFilePropertyID kAudioFilePropertyDataFormat = fourCharCode("dfmt");
/// The file's type: AudioFileTypeID.
inline constexpr AudioFilePropertyID kAudioFilePropertyFileFormat = fourCharCode("ffmt");
/// Bytes that the largest packet cannot exceed: std::uint32_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyPacketSizeUpperBound = fourCharCode("pkub");
/// Bytes of the largest packet there is: std::uint32_t. For this and the three that follow, a file
/// whose header does not list its packets is gone through once.
inline constexpr AudioFilePropertyID kAudioFilePropertyMaximumPacketSize = fourCharCode("psze");
/// Packets in the file: std::uint64_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataPacketCount = fourCharCode("pcnt");
/// Bytes of audio in the file, headers excluded: std::uint64_t.
inline constexpr AudioFilePropertyID kAudioFilePropertyAudioDataByteCount = fourCharCode("bcnt");
/// Bytes that a decoder needs beside the format: any length. A file without a cookie answers
/// 'pty?'.
inline constexpr AudioFilePropertyID kAudioFilePropertyMagicCookieData = fourCharCode("mgic");
/// Seconds of audio, while writing those so far: double. Priming and padding are left out where the
/// file tells of them; what is being written tells of none.
inline constexpr AudioFilePropertyID kAudioFilePropertyEstimatedDuration = fourCharCode("edur");

/// What the service as a whole can do, for `AudioFileGetGlobalInfo`: arrays of AudioFileTypeID.
/// Types that can be read right now.
inline constexpr AudioFilePropertyID kAudioFileGlobalInfo_ReadableTypes = fourCharCode("afrf");
/// Types that can be written right now.
inline constexpr AudioFilePropertyID kAudioFileGlobalInfo_WritableTypes = fourCharCode("afwf");

/// The service's own statuses. System errors come as the platform's file manager codes below.
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

/// Opens an audio file for reading. The type is found from the file's first bytes; the hint is not
/// needed by any type here.
///
/// Errors: -43 no such file, -1302 a folder or a pipe, -54 no permission, 'prm?' a permission other
/// than reading, 'typ?' a file of no known type, 'fmt?' a known type with audio that the service
/// does not read, 'dta?' a broken file.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileOpenURL(const std::filesystem::path& inFileRef,
                                                   AudioFilePermissions inPermissions,
                                                   AudioFileTypeID inFileTypeHint,
                                                   AudioFileID* outAudioFile);

/// Creates an audio file of the given type for audio of the given format. The file is there at
/// once, and what has been written stays readable if the process dies: at most the last second of
/// audio is missing. Not so compressed audio in CAF, which cannot be read before it is closed. With
/// `kAudioFileFlags_EraseFile` an existing file is replaced; a type or format that is refused
/// leaves it as it was.
///
/// Of a compressed format the record needs rate (a whole number), format ID and channels, and
/// `mFramesPerPacket` unless packets tell their own durations (Opus, Vorbis, FLAC).
///
/// Errors: 'typ?' an unknown type, 'fmt?' a format that the type cannot hold, -48 the file exists
/// and the erase flag is not set, -43 no such folder, -1302 a folder, -54 no permission, -44 a
/// read-only file system, -34 disk full.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileCreateWithURL(
    const std::filesystem::path& inFileRef, AudioFileTypeID inFileType,
    const AudioStreamBasicDescription* inFormat, AudioFileFlags inFlags, AudioFileID* outAudioFile);

/// Finishes a written file, closes it and frees the ID, also when finishing fails.
///
/// Errors: 'fmt?' a cookie that the format cannot do without never came, -34 disk full, -36 the
/// disk.
ZAV_EXPORT OSStatus AudioFileClose(AudioFileID inAudioFile);

/// Reads whole packets from `inStartingPacket` on, as many as are asked for, fit the buffer and are
/// there; none at or after the end, which is no error.
///
/// ioNumBytes              in: bytes in `outBuffer`; out: bytes read
/// outPacketDescriptions   null, or room for `*ioNumPackets` records: the packets' places
/// ioNumPackets            in: packets wanted; out: packets read
///
/// Errors: 'prm?' a file being written, 'pck?' a negative packet, 'dta?' broken data where the
/// next packet should be, -36 the disk.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileReadPacketData(
    AudioFileID inAudioFile, bool inUseCache, std::uint32_t* ioNumBytes,
    AudioStreamPacketDescription* outPacketDescriptions, std::int64_t inStartingPacket,
    std::uint32_t* ioNumPackets, void* outBuffer);

/// Writes packets so that the first one gets the index `inStartingPacket`.
///
/// Packets of constant size are counted by `inNumBytes`, whatever `*ioNumPackets` says on entry:
/// a decoder's chunk counts codec frames, not the PCM packets in it. On return `*ioNumPackets` is
/// what was written.
///
/// An index beyond the end leaves silence before it where the type can have that (PCM and float,
/// A-law, mu-law; written out where silence is not zero), and is 'pck?' elsewhere. An index before
/// the end overwrites.
///
/// Packets of varying size need descriptions, but for a single packet that is all of the bytes.
/// `mVariableFramesInPacket` counts for a packet that is not of the usual duration, such as a last
/// one. SBC packets, and AAC packets with ADTS headers, which are taken off, tell their own sizes.
///
/// Errors: 'prm?' a file open for reading, 'pck?' a packet that cannot stand there, -50 bytes that
/// are not whole packets, descriptions of bytes that are not there, or an empty packet, 'fmt?' what
/// the type turns out not to hold, or too much (8 MiB) that waits for a cookie, 'off?' more than
/// the type can hold (4 GiB in WAVE, AIFF, AIFC and AU), -34 disk full. `*ioNumPackets` is 0 then,
/// though some of the bytes may have been written.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileWritePackets(
    AudioFileID inAudioFile, bool inUseCache, std::uint32_t inNumBytes,
    const AudioStreamPacketDescription* inPacketDescriptions, std::int64_t inStartingPacket,
    std::uint32_t* ioNumPackets, const void* inBuffer);

/// Size of a property's value in bytes, and whether it can be set. Either pointer may be null.
///
/// Errors: 'pty?' a property that the file does not have.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetPropertyInfo(AudioFileID inAudioFile,
                                                           AudioFilePropertyID inPropertyID,
                                                           std::uint32_t* outDataSize,
                                                           std::uint32_t* isWritable);

/// Copies a property's value; `*ioDataSize` is the room in bytes on entry, the value's size on
/// return.
///
/// Errors: 'pty?' a property that the file does not have, '!siz' too little room.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetProperty(AudioFileID inAudioFile,
                                                       AudioFilePropertyID inPropertyID,
                                                       std::uint32_t* ioDataSize,
                                                       void* outPropertyData);

/// Sets a property; only the magic cookie of a file being written can be set, and only where the
/// type and format have a place for one: PCM in CAF, and AAC, ALAC, FLAC, Opus and Vorbis anywhere.
///
/// Beside the forms that are handed out, AAC's ES descriptor, ALAC's configuration as an atom (36
/// bytes) and behind a 'frma' atom (48), and FLAC's behind 'fLaC' (42) are taken.
///
/// A cookie belongs before the first packet. Without one, AAC's is made from rate and channels (or
/// an ADTS header) and Opus' from the record, with the 6.5 ms of an encoder's lookahead; ALAC, FLAC
/// and Vorbis packets wait for theirs. Later, FLAC's may change until the end, AAC's within the
/// first second in M4A and MP4, and in ADTS as far as the headers do not tell of it.
///
/// Errors: 'pty?' not a settable property of this file or one that comes too late, 'prm?' a file
/// open for reading, -50 bytes that are no cookie of this format.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileSetProperty(AudioFileID inAudioFile,
                                                       AudioFilePropertyID inPropertyID,
                                                       std::uint32_t inDataSize,
                                                       const void* inPropertyData);

/// Size in bytes of an answer of `AudioFileGetGlobalInfo`. Nothing that can be asked takes a
/// specifier: it is ignored.
///
/// Errors: 'pty?' a question that the service does not know.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetGlobalInfoSize(AudioFilePropertyID inPropertyID,
                                                             std::uint32_t inSpecifierSize,
                                                             const void* inSpecifier,
                                                             std::uint32_t* outDataSize);

/// Tells what the service can do. A type that one of the constants above names and that is not
/// among the answers is missing because the module that it needs is not installed. To find that out
/// the module is loaded.
///
/// ioDataSize        in: bytes in `outPropertyData`; out: bytes of the answer
///
/// Errors: 'pty?' a question that the service does not know, '!siz' too little room.
[[nodiscard]] ZAV_EXPORT OSStatus AudioFileGetGlobalInfo(AudioFilePropertyID inPropertyID,
                                                         std::uint32_t inSpecifierSize,
                                                         const void* inSpecifier,
                                                         std::uint32_t* ioDataSize,
                                                         void* outPropertyData);

}  // namespace zav
