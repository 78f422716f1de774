#include "ZAVAudioStreaming/platform/AudioFile.hpp"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/files/AudioFileTypes.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav {

using namespace detail;

/// An open file. Either the reader or the writer is set.
struct OpaqueAudioFileID {
    std::unique_ptr<AudioFileReader> reader;
    std::unique_ptr<AudioFileWriter> writer;

    AudioFileDriver& driver() const {
        return reader ? static_cast<AudioFileDriver&>(*reader)
                      : static_cast<AudioFileDriver&>(*writer);
    }
};

namespace {

OSStatus statusOfErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return kAudioFileFileNotFoundError;
        case EISDIR:
        case ESPIPE:
            return kAudioFileNotAFileError;
        case EACCES:
        case EPERM:
            return kAudioFilePermissionDeniedError;
        case EROFS:
            return kAudioFileWriteProtectedError;
        case EEXIST:
            return kAudioFileExistsError;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return kAudioFileDiskFullError;
        case EMFILE:
        case ENFILE:
            return kAudioFileTooManyOpenError;
        case ENOMEM:
            return kAudioFileMemoryError;
        default:
            return kAudioFileIOError;
    }
}

// Turns everything that a driver throws into a status.
template <class Call>
OSStatus statusOf(Call call) noexcept {
    try {
        return call();
    } catch (const StatusFailure& failure) {
        return failure.status();
    } catch (const std::system_error& error) {
        return statusOfErrno(error.code().value());
    } catch (const std::bad_alloc&) {
        return kAudioFileMemoryError;
    } catch (...) {
        return kAudioFileUnspecifiedError;
    }
}

// Returns sizes without computing the values, because counting packets can mean reading the whole
// file.
OSStatus sizeOfProperty(AudioFileDriver& driver, AudioFilePropertyID property,
                        std::uint32_t& size) {
    switch (property) {
        case kAudioFilePropertyDataFormat:
            size = sizeof(AudioStreamBasicDescription);
            return noErr;
        case kAudioFilePropertyFileFormat:
        case kAudioFilePropertyPacketSizeUpperBound:
        case kAudioFilePropertyMaximumPacketSize:
            size = sizeof(std::uint32_t);
            return noErr;
        case kAudioFilePropertyAudioDataPacketCount:
        case kAudioFilePropertyAudioDataByteCount:
            size = sizeof(std::uint64_t);
            return noErr;
        case kAudioFilePropertyEstimatedDuration:
            size = sizeof(double);
            return noErr;
        case kAudioFilePropertyMagicCookieData:
            size = static_cast<std::uint32_t>(driver.magicCookie().size());
            return size > 0 ? noErr : kAudioFileUnsupportedPropertyError;
        default:
            return kAudioFileUnsupportedPropertyError;
    }
}

void copyProperty(AudioFileDriver& driver, AudioFilePropertyID property, void* out) {
    const auto copy = [out](const auto& value) { std::memcpy(out, &value, sizeof(value)); };
    switch (property) {
        case kAudioFilePropertyDataFormat:
            return copy(driver.dataFormat());
        case kAudioFilePropertyFileFormat:
            return copy(driver.fileType());
        case kAudioFilePropertyPacketSizeUpperBound:
        case kAudioFilePropertyMaximumPacketSize:
            return copy(driver.maximumPacketSize());
        case kAudioFilePropertyAudioDataPacketCount:
            return copy(driver.packetCount());
        case kAudioFilePropertyAudioDataByteCount:
            return copy(driver.byteCount());
        case kAudioFilePropertyEstimatedDuration:
            return copy(driver.durationInSeconds());
        default:
            std::memcpy(out, driver.magicCookie().data(), driver.magicCookie().size());
    }
}

std::vector<AudioFileTypeID> globalInfo(AudioFilePropertyID property) {
    switch (property) {
        case kAudioFileGlobalInfo_ReadableTypes:
            return readableAudioFileTypes();
        case kAudioFileGlobalInfo_WritableTypes:
            return writableAudioFileTypes();
        default:
            throw StatusFailure(kAudioFileUnsupportedPropertyError);
    }
}

}  // namespace

OSStatus AudioFileOpenURL(const std::filesystem::path& inFileRef,
                          AudioFilePermissions inPermissions, AudioFileTypeID /*inFileTypeHint*/,
                          AudioFileID* outAudioFile) {
    return statusOf([&] {
        if (outAudioFile == nullptr) {
            return kAudioFileParameterError;
        }
        if (inPermissions != kAudioFileReadPermission) {
            return kAudioFilePermissionsError;
        }
        auto reader = openAudioFile(FileHandle::openForReading(inFileRef));
        *outAudioFile = new OpaqueAudioFileID{std::move(reader), nullptr};
        return noErr;
    });
}

OSStatus AudioFileCreateWithURL(const std::filesystem::path& inFileRef, AudioFileTypeID inFileType,
                                const AudioStreamBasicDescription* inFormat, AudioFileFlags inFlags,
                                AudioFileID* outAudioFile) {
    return statusOf([&] {
        if (inFormat == nullptr || outAudioFile == nullptr) {
            return kAudioFileParameterError;
        }
        const auto ifExists = (inFlags & kAudioFileFlags_EraseFile) != 0
                                  ? FileHandle::IfExists::replace
                                  : FileHandle::IfExists::fail;
        auto writer = createAudioFile(inFileRef, ifExists, inFileType, *inFormat);
        *outAudioFile = new OpaqueAudioFileID{nullptr, std::move(writer)};
        return noErr;
    });
}

OSStatus AudioFileClose(AudioFileID inAudioFile) {
    const std::unique_ptr<OpaqueAudioFileID> audioFile(inAudioFile);
    return statusOf([&] {
        if (audioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        if (audioFile->writer != nullptr) {
            audioFile->writer->finish();
        }
        return noErr;
    });
}

OSStatus AudioFileReadPacketData(AudioFileID inAudioFile, bool /*inUseCache*/,
                                 std::uint32_t* ioNumBytes,
                                 AudioStreamPacketDescription* outPacketDescriptions,
                                 std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                                 void* outBuffer) {
    return statusOf([&] {
        if (inAudioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        if (ioNumBytes == nullptr || ioNumPackets == nullptr ||
            (outBuffer == nullptr && *ioNumBytes > 0)) {
            return kAudioFileParameterError;
        }
        if (inAudioFile->reader == nullptr) {
            return kAudioFilePermissionsError;
        }
        if (inStartingPacket < 0) {
            return kAudioFileInvalidPacketOffsetError;
        }
        const PacketRun run = inAudioFile->reader->readPackets(
            static_cast<std::uint64_t>(inStartingPacket), {*ioNumBytes, *ioNumPackets},
            outPacketDescriptions, outBuffer);
        *ioNumBytes = run.byteCount;
        *ioNumPackets = run.packetCount;
        return noErr;
    });
}

OSStatus AudioFileWritePackets(AudioFileID inAudioFile, bool /*inUseCache*/,
                               std::uint32_t inNumBytes,
                               const AudioStreamPacketDescription* inPacketDescriptions,
                               std::int64_t inStartingPacket, std::uint32_t* ioNumPackets,
                               const void* inBuffer) {
    if (ioNumPackets == nullptr) {
        return kAudioFileParameterError;
    }
    const std::uint32_t packetCount = std::exchange(*ioNumPackets, 0);
    return statusOf([&] {
        if (inAudioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        if (inBuffer == nullptr && inNumBytes > 0) {
            return kAudioFileParameterError;
        }
        if (inAudioFile->writer == nullptr) {
            return kAudioFilePermissionsError;
        }
        if (inStartingPacket < 0) {
            return kAudioFileInvalidPacketOffsetError;
        }
        if (inNumBytes > 0) {
            *ioNumPackets = inAudioFile->writer->writePackets(
                static_cast<std::uint64_t>(inStartingPacket), {inNumBytes, packetCount},
                inPacketDescriptions, inBuffer);
        }
        return noErr;
    });
}

OSStatus AudioFileGetPropertyInfo(AudioFileID inAudioFile, AudioFilePropertyID inPropertyID,
                                  std::uint32_t* outDataSize, std::uint32_t* isWritable) {
    return statusOf([&] {
        if (inAudioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        const bool canSet = inPropertyID == kAudioFilePropertyMagicCookieData &&
                            inAudioFile->writer != nullptr &&
                            inAudioFile->writer->takesMagicCookie();
        std::uint32_t size = 0;
        if (const OSStatus status = sizeOfProperty(inAudioFile->driver(), inPropertyID, size);
            status != noErr && !canSet) {
            return status;
        }
        if (outDataSize != nullptr) {
            *outDataSize = size;
        }
        if (isWritable != nullptr) {
            *isWritable = canSet ? 1 : 0;
        }
        return noErr;
    });
}

OSStatus AudioFileGetProperty(AudioFileID inAudioFile, AudioFilePropertyID inPropertyID,
                              std::uint32_t* ioDataSize, void* outPropertyData) {
    return statusOf([&] {
        if (inAudioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        if (ioDataSize == nullptr || outPropertyData == nullptr) {
            return kAudioFileParameterError;
        }
        std::uint32_t size = 0;
        if (const OSStatus status = sizeOfProperty(inAudioFile->driver(), inPropertyID, size);
            status != noErr) {
            return status;
        }
        if (*ioDataSize < size) {
            return kAudioFileBadPropertySizeError;
        }
        copyProperty(inAudioFile->driver(), inPropertyID, outPropertyData);
        *ioDataSize = size;
        return noErr;
    });
}

OSStatus AudioFileSetProperty(AudioFileID inAudioFile, AudioFilePropertyID inPropertyID,
                              std::uint32_t inDataSize, const void* inPropertyData) {
    return statusOf([&] {
        if (inAudioFile == nullptr) {
            return kAudioFileNotOpenError;
        }
        if (inPropertyID != kAudioFilePropertyMagicCookieData) {
            return kAudioFileUnsupportedPropertyError;
        }
        if (inPropertyData == nullptr && inDataSize > 0) {
            return kAudioFileParameterError;
        }
        if (inAudioFile->writer == nullptr) {
            return kAudioFilePermissionsError;
        }
        inAudioFile->writer->setMagicCookie(
            {static_cast<const std::byte*>(inPropertyData), inDataSize});
        return noErr;
    });
}

OSStatus AudioFileGetGlobalInfoSize(AudioFilePropertyID inPropertyID,
                                    std::uint32_t /*inSpecifierSize*/, const void* /*inSpecifier*/,
                                    std::uint32_t* outDataSize) {
    return statusOf([&] {
        if (outDataSize == nullptr) {
            return kAudioFileParameterError;
        }
        *outDataSize =
            static_cast<std::uint32_t>(globalInfo(inPropertyID).size() * sizeof(AudioFileTypeID));
        return noErr;
    });
}

OSStatus AudioFileGetGlobalInfo(AudioFilePropertyID inPropertyID, std::uint32_t /*inSpecifierSize*/,
                                const void* /*inSpecifier*/, std::uint32_t* ioDataSize,
                                void* outPropertyData) {
    return statusOf([&] {
        if (ioDataSize == nullptr || outPropertyData == nullptr) {
            return kAudioFileParameterError;
        }
        const std::vector<AudioFileTypeID> types = globalInfo(inPropertyID);
        const auto size = static_cast<std::uint32_t>(types.size() * sizeof(AudioFileTypeID));
        if (*ioDataSize < size) {
            return kAudioFileBadPropertySizeError;
        }
        std::memcpy(outPropertyData, types.data(), size);
        *ioDataSize = size;
        return noErr;
    });
}

}  // namespace zav
