#include "ZAVAudioStreaming/files/PcmFileStructure.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

/// How chunks stand in a file: an id whose first four bytes count, a size, the content, padding.
struct ChunkGrammar {
    AudioFileTypeID fileType;
    std::uint32_t firstChunk;            ///< offset in the file
    std::uint32_t idSize = 4;            ///< bytes; 16 where ids are GUIDs
    std::uint32_t sizeSize = 4;          ///< bytes of the size field
    bool isBigEndian = false;            ///< the size field
    bool sizeCountsHeader = false;       ///< id and size field count into the size
    std::uint32_t alignment = 2;         ///< chunks start at multiples of this
    std::string_view formatId = "fmt ";  ///< the chunk that describes the audio
    std::uint32_t smallestFormat = 16;
    std::uint32_t largestFormat = 1024;
    std::string_view dataId = "data";          ///< the chunk that holds it
    std::uint32_t bytesBeforeAudio = 0;        ///< in that chunk
    std::array<std::string_view, 2> otherIds;  ///< chunks that libsndfile needs besides
};

constexpr ChunkGrammar kWave{
    .fileType = kAudioFileWAVEType, .firstChunk = 12, .otherIds = {"fact", "ds64"}};
constexpr ChunkGrammar kWave64{.fileType = kAudioFileWave64Type,
                               .firstChunk = 40,
                               .idSize = 16,
                               .sizeSize = 8,
                               .sizeCountsHeader = true,
                               .alignment = 8,
                               .otherIds = {"fact", ""}};
constexpr ChunkGrammar kAiff{.fileType = kAudioFileAIFFType,
                             .firstChunk = 12,
                             .isBigEndian = true,
                             .formatId = "COMM",
                             .smallestFormat = 18,
                             .dataId = "SSND",
                             .bytesBeforeAudio = 8,
                             .otherIds = {"FVER", ""}};
constexpr ChunkGrammar kCaf{.fileType = kAudioFileCAFType,
                            .firstChunk = 8,
                            .sizeSize = 8,
                            .isBigEndian = true,
                            .alignment = 1,
                            .formatId = "desc",
                            .smallestFormat = 32,
                            .largestFormat = 32,
                            .bytesBeforeAudio = 4,
                            .otherIds = {"free", ""}};

constexpr std::string_view kCafCookieId = "kuki";
constexpr std::size_t kIdentifyingBytes = 40;

constexpr std::uint64_t kUnknown32BitSize = 0xFFFFFFFF;
constexpr std::uint64_t kUnknown64BitSize = 0xFFFFFFFFFFFFFFFF;

/// Real files have a few dozen chunks at most.
constexpr int kMostChunks = 4096;

[[noreturn]] void refuseFile() {
    throw StatusFailure(kAudioFileInvalidFileError);
}

std::uint64_t integerAt(std::span<const std::byte> bytes, bool isBigEndian) {
    return isBigEndian ? bigEndianAt(bytes) : littleEndianAt(bytes);
}

bool canBeId(std::string_view id) {
    return std::all_of(id.begin(), id.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::optional<ChunkGrammar> grammarOf(std::string_view start) {
    const auto has = [start](std::size_t offset, std::string_view text) {
        return start.size() >= offset + text.size() && start.substr(offset, text.size()) == text;
    };
    ChunkGrammar grammar = kWave;
    if (has(0, "RIFF") && has(8, "WAVE")) {
        return grammar;
    }
    if (has(0, "RIFX") && has(8, "WAVE")) {
        grammar.isBigEndian = true;
        return grammar;
    }
    if (has(0, "RF64") && has(8, "WAVE")) {
        grammar.fileType = kAudioFileRF64Type;
        return grammar;
    }
    if (has(0, "riff") && has(24, "wave")) {
        return kWave64;
    }
    if (has(0, "FORM") && (has(8, "AIFF") || has(8, "AIFC"))) {
        grammar = kAiff;
        grammar.fileType = has(8, "AIFF") ? kAudioFileAIFFType : kAudioFileAIFCType;
        return grammar;
    }
    if (has(0, "caff")) {
        return kCaf;
    }
    return std::nullopt;
}

/// AU has no chunks: magic, offset of the audio, size, encoding, rate, channels.
PcmFileStructure examineAu(std::string_view start, std::uint64_t fileSize) {
    constexpr std::size_t kHeaderSize = 24;
    if (start.size() < kHeaderSize) {
        refuseFile();
    }
    std::array<std::byte, 4> field{};
    std::memcpy(field.data(), start.data() + 4, field.size());
    const std::uint64_t dataOffset = integerAt(field, start.front() == '.');
    if (dataOffset < kHeaderSize || dataOffset > fileSize) {
        refuseFile();
    }
    PcmFileStructure structure;
    structure.fileType = kAudioFileNextType;
    return structure;
}

/// Every type takes a chunk with this id for filler.
void hideChunk(std::uint64_t idOffset, PcmFileStructure& structure) {
    constexpr std::string_view kFiller = "JUNK";
    for (std::size_t i = 0; i < kFiller.size(); ++i) {
        structure.edits.push_back({idOffset + i, static_cast<std::byte>(kFiller[i])});
    }
}

/// Shows another size of a CAF chunk.
void putSize(std::uint64_t sizeOffset, std::uint64_t size, PcmFileStructure& structure) {
    std::array<std::byte, 8> bytes{};
    putBigEndian(bytes, size);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        structure.edits.push_back({sizeOffset + i, bytes[i]});
    }
}

/// In W64, libsndfile takes the extensible form of a format for integers, whatever it is. The real
/// encoding stands further on in it (WAVEFORMATEXTENSIBLE's SubFormat).
void nameRealEncoding(const FileHandle& file, std::uint64_t format, std::uint64_t formatSize,
                      PcmFileStructure& structure) {
    constexpr std::array kExtensible = {std::byte{0xFE}, std::byte{0xFF}};
    constexpr std::uint64_t kSubFormat = 24;
    std::array<std::byte, 2> encoding{};
    file.readAt(format, encoding.data(), encoding.size());
    if (encoding == kExtensible && formatSize >= kSubFormat + encoding.size()) {
        file.readAt(format + kSubFormat, encoding.data(), encoding.size());
        structure.edits.push_back({format, encoding[0]});
        structure.edits.push_back({format + 1, encoding[1]});
    }
}

/// libsndfile cuts a rate of 44100.5 Hz to 44100 Hz. CAF has it as a double, AIFF as an 80-bit
/// float: sign and exponent in 2 bytes, then 64 bits, the highest of them the ones.
void requireWholeRate(const FileHandle& file, std::uint64_t format, AudioFileTypeID fileType) {
    bool isWhole = true;
    if (fileType == kAudioFileCAFType) {
        std::array<std::byte, 8> rate{};
        file.readAt(format, rate.data(), rate.size());
        const auto value = std::bit_cast<double>(bigEndianAt(rate));
        isWhole = value == std::floor(value);
    } else if (fileType == kAudioFileAIFFType || fileType == kAudioFileAIFCType) {
        constexpr std::uint64_t kRateInFormat = 8;
        constexpr std::uint64_t kExponentOfOne = 16383;
        std::array<std::byte, 10> rate{};
        file.readAt(format + kRateInFormat, rate.data(), rate.size());
        const std::uint64_t exponent = bigEndianAt(std::span(rate).first(2)) - kExponentOfOne;
        const std::uint64_t bits = bigEndianAt(std::span(rate).last(8));
        isWhole = exponent < 63 && bits << (exponent + 1) == 0;
    }
    if (!isWhole) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
}

bool isPcmInCaf(const FileHandle& file, std::uint64_t description) {
    constexpr std::uint64_t kFormatId = 8;
    std::array<std::byte, 4> code{};
    file.readAt(description + kFormatId, code.data(), code.size());
    AudioStreamBasicDescription format;
    format.mFormatID = static_cast<std::uint32_t>(bigEndianAt(code));
    return isPcmFormat(format);
}

PcmFileStructure examineChunks(const FileHandle& file, std::uint64_t fileSize,
                               const ChunkGrammar& grammar) {
    PcmFileStructure structure;
    structure.fileType = grammar.fileType;
    bool hasFormat = false;
    bool hasData = false;

    const std::uint64_t headerSize = grammar.idSize + grammar.sizeSize;
    std::uint64_t offset = grammar.firstChunk;
    for (int chunkCount = 0;; ++chunkCount) {
        std::array<std::byte, 24> header{};
        if (file.readAt(offset, header.data(), headerSize) < headerSize) {
            break;
        }
        const std::string_view id(reinterpret_cast<const char*>(header.data()), 4);
        std::uint64_t size = integerAt(std::span(header).subspan(grammar.idSize, grammar.sizeSize),
                                       grammar.isBigEndian);
        const bool isTooSmall = grammar.sizeCountsHeader && size < headerSize;
        const bool isTooMuch = chunkCount == kMostChunks;
        if (hasFormat && hasData && (isTooSmall || isTooMuch || !canBeId(id))) {
            // No chunks any more: padding, or audio behind the header of a killed writer.
            break;
        }
        if (isTooSmall || isTooMuch) {
            refuseFile();
        }
        size -= grammar.sizeCountsHeader ? headerSize : 0;
        const std::uint64_t content = offset + headerSize;
        const bool isWhole = size <= fileSize - content;

        if (id == grammar.formatId) {
            if (hasFormat || !isWhole || size < grammar.smallestFormat ||
                size > grammar.largestFormat) {
                refuseFile();
            }
            hasFormat = true;
            requireWholeRate(file, content, grammar.fileType);
            structure.isCompressed =
                grammar.fileType == kAudioFileCAFType && !isPcmInCaf(file, content);
            if (grammar.fileType == kAudioFileWave64Type) {
                nameRealEncoding(file, content, size, structure);
            }
        } else if (id == grammar.dataId) {
            if (hasData) {
                refuseFile();
            }
            hasData = true;
            if (size == 0 || size == kUnknown32BitSize) {
                // Empty, or left so by a writer that was killed or could not seek back: libsndfile
                // finds out from the rest of the header and the file. RF64 keeps the size
                // elsewhere.
                break;
            }
            if (size == kUnknown64BitSize && grammar.fileType == kAudioFileCAFType) {
                // Legal for the last chunk, but libsndfile wants to know.
                size = fileSize - content;
                putSize(offset + grammar.idSize, size, structure);
                structure.audioSize =
                    size - std::min<std::uint64_t>(size, grammar.bytesBeforeAudio);
                break;
            }
            if (isWhole && size >= grammar.bytesBeforeAudio) {
                structure.audioSize = size - grammar.bytesBeforeAudio;
            }
        } else if (grammar.fileType == kAudioFileCAFType && id == kCafCookieId && isWhole &&
                   structure.cookieSize == 0) {
            structure.cookieOffset = content;
            structure.cookieSize =
                static_cast<std::uint32_t>(std::min<std::uint64_t>(size, UINT32_MAX));
            hideChunk(offset, structure);
        } else if (std::find(grammar.otherIds.begin(), grammar.otherIds.end(), id) ==
                   grammar.otherIds.end()) {
            hideChunk(offset, structure);
        }
        if (!isWhole) {
            // Truncated, or data of unknown length: nothing can follow.
            break;
        }
        const std::uint64_t end = content + size;
        offset = (end + grammar.alignment - 1) / grammar.alignment * grammar.alignment;
    }
    if (!hasFormat || !hasData) {
        refuseFile();
    }
    return structure;
}

}  // namespace

std::optional<PcmFileStructure> examinePcmFile(const FileHandle& file) {
    std::array<char, kIdentifyingBytes> bytes{};
    const std::string_view start(bytes.data(), file.readAt(0, bytes.data(), bytes.size()));
    const std::uint64_t fileSize = file.size();
    if (start.substr(0, 4) == ".snd" || start.substr(0, 4) == "dns.") {
        return examineAu(start, fileSize);
    }
    if (const auto grammar = grammarOf(start)) {
        return examineChunks(file, fileSize, *grammar);
    }
    return std::nullopt;
}

}  // namespace zav::detail
