#include "ZAVAudioStreaming/files/PcmFileStructure.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

/// The layout of a file type's chunks: an id, a size, the content, padding. Only the first four
/// bytes of an id are compared.
struct ChunkGrammar {
    AudioFileTypeID fileType;
    std::uint32_t firstChunk;            ///< offset in the file
    std::uint32_t idSize = 4;            ///< bytes; 16 where ids are GUIDs
    std::uint32_t sizeSize = 4;          ///< bytes of the size field
    bool isBigEndian = false;            ///< byte order of the size field
    bool sizeCountsHeader = false;       ///< the size includes the id and the size field
    std::uint32_t alignment = 2;         ///< chunks start at multiples of this offset
    std::string_view formatId = "fmt ";  ///< id of the chunk that describes the audio
    std::uint32_t smallestFormat = 16;   ///< bytes in that chunk
    std::uint32_t largestFormat = 1024;
    std::string_view dataId = "data";          ///< id of the chunk that holds the audio
    std::uint32_t bytesBeforeAudio = 0;        ///< in that chunk
    std::array<std::string_view, 2> otherIds;  ///< ids of the other chunks that libsndfile needs
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

/// Real files have a few dozen chunks.
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

/// AU has no chunks, only a header of six fields: magic, offset of the audio, size, encoding, rate,
/// channels.
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

/// libsndfile cuts a rate of 44100.5 Hz to 44100 Hz, so we refuse rates that are not whole numbers.
/// CAF stores the rate as a double. AIFF stores an 80-bit float: sign and exponent in 2 bytes, then
/// a mantissa of 64 bits. The highest bit of the mantissa stands for 1.
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

/// A chunk as its header describes it.
struct Chunk {
    std::uint64_t offset;  ///< of the id in the file
    std::array<char, 4> idStart;
    bool hasValidSize;
    std::uint64_t content;  ///< offset in the file
    std::uint64_t size;     ///< of the content, in bytes
    bool isWhole;           ///< the file holds all of the content

    std::string_view id() const { return {idStart.data(), idStart.size()}; }
};

/// Goes through the chunks of one file and collects its structure.
class ChunkExaminer {
 public:
    ChunkExaminer(const FileHandle& file, std::uint64_t fileSize, const ChunkGrammar& grammar)
        : file_(file), fileSize_(fileSize), grammar_(grammar) {
        structure_.fileType = grammar.fileType;
    }

    PcmFileStructure examine() {
        std::uint64_t offset = grammar_.firstChunk;
        for (int count = 0;; ++count) {
            const auto chunk = chunkAt(offset);
            if (!chunk || isAfterLastChunk(*chunk, count) || !add(*chunk)) {
                break;
            }
            const std::uint64_t end = chunk->content + chunk->size;
            offset = (end + grammar_.alignment - 1) / grammar_.alignment * grammar_.alignment;
        }
        if (!hasFormat_ || !hasData_) {
            refuseFile();
        }
        return std::move(structure_);
    }

 private:
    /// Empty if the file ends before or within the chunk's header.
    std::optional<Chunk> chunkAt(std::uint64_t offset) const {
        const std::uint64_t headerSize = grammar_.idSize + grammar_.sizeSize;
        std::array<std::byte, 24> header{};
        if (file_.readAt(offset, header.data(), headerSize) < headerSize) {
            return std::nullopt;
        }
        const std::uint64_t size = integerAt(
            std::span(header).subspan(grammar_.idSize, grammar_.sizeSize), grammar_.isBigEndian);
        const std::uint64_t countedHeader = grammar_.sizeCountsHeader ? headerSize : 0;
        Chunk chunk{};
        chunk.offset = offset;
        std::memcpy(chunk.idStart.data(), header.data(), chunk.idStart.size());
        chunk.hasValidSize = size >= countedHeader;
        chunk.content = offset + headerSize;
        chunk.size = size - countedHeader;
        chunk.isWhole = chunk.hasValidSize && chunk.size <= fileSize_ - chunk.content;
        return chunk;
    }

    /// True if these bytes cannot be a chunk. They are padding, or audio that a killed writer left
    /// without a size in the header. Both can only follow the format and the data. Before the
    /// format or the data, such bytes make the file invalid, and we refuse it.
    bool isAfterLastChunk(const Chunk& chunk, int count) const {
        const bool isImpossible = !chunk.hasValidSize || count == kMostChunks;
        const bool isComplete = hasFormat_ && hasData_;
        if (isImpossible && !isComplete) {
            refuseFile();
        }
        return isComplete && (isImpossible || !canBeId(chunk.id()));
    }

    /// Returns false if no chunk can follow: this one is cut off, or its length is unknown.
    bool add(const Chunk& chunk) {
        if (chunk.id() == grammar_.dataId) {
            return addData(chunk);
        }
        if (chunk.id() == grammar_.formatId) {
            addFormat(chunk);
        } else {
            addOther(chunk);
        }
        return chunk.isWhole;
    }

    void addFormat(const Chunk& chunk) {
        if (hasFormat_ || !chunk.isWhole || chunk.size < grammar_.smallestFormat ||
            chunk.size > grammar_.largestFormat) {
            refuseFile();
        }
        hasFormat_ = true;
        requireWholeRate(file_, chunk.content, grammar_.fileType);
        structure_.isCompressed = isCaf() && !isPcmInCaf(file_, chunk.content);
        if (grammar_.fileType == kAudioFileWave64Type) {
            showRealEncoding(chunk);
        }
    }

    bool addData(const Chunk& chunk) {
        if (hasData_) {
            refuseFile();
        }
        hasData_ = true;
        if (chunk.size == 0 || chunk.size == kUnknown32BitSize) {
            // The file is empty, or its writer was killed or could not seek back. libsndfile
            // computes the size from the rest of the header and the file. RF64 stores the size
            // elsewhere.
            return false;
        }
        if (chunk.size == kUnknown64BitSize && isCaf()) {
            // An unknown size is valid for the last chunk, but libsndfile needs a number.
            const std::uint64_t size = fileSize_ - chunk.content;
            showSize(chunk, size);
            structure_.audioSize = size - std::min<std::uint64_t>(size, grammar_.bytesBeforeAudio);
            return false;
        }
        if (chunk.isWhole && chunk.size >= grammar_.bytesBeforeAudio) {
            structure_.audioSize = chunk.size - grammar_.bytesBeforeAudio;
        }
        return chunk.isWhole;
    }

    void addOther(const Chunk& chunk) {
        if (isCaf() && chunk.id() == kCafCookieId && chunk.isWhole && structure_.cookieSize == 0) {
            structure_.cookieOffset = chunk.content;
            structure_.cookieSize =
                static_cast<std::uint32_t>(std::min<std::uint64_t>(chunk.size, UINT32_MAX));
        }
        const auto& needed = grammar_.otherIds;
        if (std::find(needed.begin(), needed.end(), chunk.id()) == needed.end()) {
            hide(chunk);
        }
    }

    bool isCaf() const { return grammar_.fileType == kAudioFileCAFType; }

    /// Renames the chunk to JUNK, which every file type treats as filler.
    void hide(const Chunk& chunk) {
        constexpr std::string_view kFiller = "JUNK";
        show(chunk.offset, std::as_bytes(std::span(kFiller)));
    }

    /// Shows another size of a CAF chunk.
    void showSize(const Chunk& chunk, std::uint64_t size) {
        std::array<std::byte, 8> bytes{};
        putBigEndian(bytes, size);
        show(chunk.offset + grammar_.idSize, bytes);
    }

    /// In W64, libsndfile reads every extensible format as integers. The real encoding is in a
    /// later field of the format (WAVEFORMATEXTENSIBLE's SubFormat). So libsndfile is shown that
    /// field in place of the first one.
    void showRealEncoding(const Chunk& format) {
        constexpr std::array kExtensible = {std::byte{0xFE}, std::byte{0xFF}};
        constexpr std::uint64_t kSubFormat = 24;
        std::array<std::byte, 2> encoding{};
        file_.readAt(format.content, encoding.data(), encoding.size());
        if (encoding == kExtensible && format.size >= kSubFormat + encoding.size()) {
            file_.readAt(format.content + kSubFormat, encoding.data(), encoding.size());
            show(format.content, encoding);
        }
    }

    /// Shows these bytes to libsndfile, starting at `offset`.
    void show(std::uint64_t offset, std::span<const std::byte> bytes) {
        for (const std::byte byte : bytes) {
            structure_.edits.push_back({offset++, byte});
        }
    }

    const FileHandle& file_;
    std::uint64_t fileSize_;
    const ChunkGrammar& grammar_;
    PcmFileStructure structure_;
    bool hasFormat_ = false;
    bool hasData_ = false;
};

}  // namespace

std::optional<PcmFileStructure> examinePcmFile(const FileHandle& file) {
    std::array<char, kIdentifyingBytes> bytes{};
    const std::string_view start(bytes.data(), file.readAt(0, bytes.data(), bytes.size()));
    const std::uint64_t fileSize = file.size();
    if (start.substr(0, 4) == ".snd" || start.substr(0, 4) == "dns.") {
        return examineAu(start, fileSize);
    }
    if (const auto grammar = grammarOf(start)) {
        return ChunkExaminer(file, fileSize, *grammar).examine();
    }
    return std::nullopt;
}

}  // namespace zav::detail
