#include "ZAVAudioStreaming/modules/ffmpeg/OggPages.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

constexpr std::size_t kFixedHeaderSize = 27;
constexpr std::size_t kLongestHeader = kFixedHeaderSize + 255;
constexpr std::string_view kCapturePattern = "OggS";
constexpr std::uint32_t kFullSegment = 255;

/// Header of a page: pattern, version, flags, granule position, serial number, page number,
/// checksum, number of segments, their sizes. Integers are little-endian.
class PageHeader {
 public:
    /// Empty unless the bytes begin with a whole header.
    static std::optional<PageHeader> at(std::span<const std::byte> bytes) {
        if (bytes.size() < kFixedHeaderSize || !beginsWithPattern(bytes) ||
            bytes[4] != std::byte{0} ||
            bytes.size() < kFixedHeaderSize + std::to_integer<std::size_t>(bytes[26])) {
            return std::nullopt;
        }
        return PageHeader(bytes);
    }

    static bool beginsWithPattern(std::span<const std::byte> bytes) {
        return bytes.size() >= kCapturePattern.size() &&
               std::string_view(reinterpret_cast<const char*>(bytes.data()),
                                kCapturePattern.size()) == kCapturePattern;
    }

    bool isContinued() const { return (bytes_[5] & std::byte{1}) != std::byte{0}; }
    bool isFirst() const { return (bytes_[5] & std::byte{2}) != std::byte{0}; }
    bool isLast() const { return (bytes_[5] & std::byte{4}) != std::byte{0}; }
    std::int64_t granule() const { return static_cast<std::int64_t>(integerAt(6, 8)); }
    std::uint64_t serial() const { return integerAt(14, 4); }
    std::uint64_t number() const { return integerAt(18, 4); }
    std::span<const std::byte> segments() const {
        return bytes_.subspan(kFixedHeaderSize, std::to_integer<std::size_t>(bytes_[26]));
    }
    std::size_t size() const { return kFixedHeaderSize + segments().size(); }
    std::size_t contentSize() const {
        return std::accumulate(segments().begin(), segments().end(), std::size_t{0},
                               [](std::size_t sum, std::byte size) {
                                   return sum + std::to_integer<std::size_t>(size);
                               });
    }

 private:
    explicit PageHeader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    std::uint64_t integerAt(std::size_t offset, std::size_t size) const {
        return littleEndianAt(bytes_.subspan(offset, size));
    }

    std::span<const std::byte> bytes_;
};

/// Where the next page may begin; the end of the file when none does.
std::uint64_t findPage(FileWindow& window, std::uint64_t offset) {
    constexpr std::size_t kStep = 65536;
    while (offset < window.fileSize()) {
        const auto bytes = window.at(offset, kStep);
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        if (const auto found = text.find(kCapturePattern); found != std::string_view::npos) {
            return offset + found;
        }
        if (bytes.size() < kStep) {
            break;
        }
        offset += kStep - (kCapturePattern.size() - 1);
    }
    return window.fileSize();
}

}  // namespace

void OggPages::walk(const FileHandle& file, std::span<const std::byte> firstBytes,
                    const std::function<bool(const Packet&)>& take) {
    pageOffsets_.clear();
    isChained_ = false;
    FileWindow window(file);
    std::optional<std::uint64_t> serial;
    std::uint64_t nextNumber = 0;
    bool hasEnded = false;
    // The packet that goes on; none while nothing of one has been seen.
    std::optional<Packet> packet;
    std::array<std::byte, kPacketStart> start{};

    for (std::uint64_t offset = 0; offset < window.fileSize();) {
        const auto header = PageHeader::at(window.at(offset, kLongestHeader));
        if (!header) {
            offset = findPage(window, offset + 1);
            packet.reset();
            continue;
        }
        const std::uint64_t pageOffset = offset;
        const std::uint64_t content = pageOffset + header->size();
        const std::size_t contentSize = header->contentSize();
        if (contentSize > window.fileSize() - content) {
            return;
        }
        offset = content + contentSize;
        if (!serial && header->isFirst()) {
            const std::uint64_t candidate = header->serial();
            const auto bytes = window.at(content, std::min(contentSize, firstBytes.size()));
            if (!std::equal(bytes.begin(), bytes.end(), firstBytes.begin(), firstBytes.end())) {
                continue;
            }
            serial = candidate;
        } else if (!serial) {
            continue;
        }
        // The window may have moved from under the header.
        const auto pageBytes = window.at(pageOffset, offset - pageOffset);
        const auto whole = PageHeader::at(pageBytes);
        if (!whole || pageBytes.size() < offset - pageOffset) {
            return;  // the file has become shorter
        }
        const PageHeader& page = *whole;
        // Streams side by side all begin before any goes on.
        if (page.isFirst() && pageOffsets_.size() > 1) {
            isChained_ = true;
            return;
        }
        if (page.serial() != *serial || hasEnded) {
            continue;
        }
        pageOffsets_.push_back(pageOffset);
        if (!page.isContinued() || page.number() != nextNumber) {
            packet.reset();
        }
        nextNumber = (page.number() + 1) & UINT32_MAX;

        const auto segments = page.segments();
        bool isBetween = !page.isContinued();
        std::size_t at = 0;
        const auto lastEnd =
            std::find_if(segments.rbegin(), segments.rend(), [](std::byte segment) {
                return std::to_integer<std::uint32_t>(segment) < kFullSegment;
            });
        const auto lastEnding = static_cast<std::size_t>(segments.rend() - lastEnd);  // or 0: none
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const auto size = std::to_integer<std::uint32_t>(segments[i]);
            if (isBetween) {
                packet = Packet{content + at, 0, {}, std::nullopt};
                isBetween = false;
            }
            if (packet) {
                for (std::size_t b = 0; b < size && packet->size + b < start.size(); ++b) {
                    start[packet->size + b] = pageBytes[page.size() + at + b];
                }
                packet->size += size;
            }
            at += size;
            if (size == kFullSegment) {
                continue;
            }
            isBetween = true;
            if (packet) {
                packet->start =
                    std::span(start).first(std::min<std::size_t>(packet->size, start.size()));
                if (i + 1 == lastEnding && page.granule() >= 0) {
                    packet->granule = page.granule();
                }
                if (!take(*packet)) {
                    return;
                }
            }
            packet.reset();
        }
        hasEnded = page.isLast();
    }
}

std::size_t OggPages::read(const FileHandle& file, std::uint64_t offset, void* buffer,
                           std::size_t size) const {
    auto* const out = static_cast<std::byte*>(buffer);
    std::size_t done = 0;
    auto next = std::upper_bound(pageOffsets_.begin(), pageOffsets_.end(), offset);
    if (next == pageOffsets_.begin()) {
        return 0;
    }
    for (auto place = next - 1; done < size && place != pageOffsets_.end(); ++place) {
        std::array<std::byte, kLongestHeader> bytes{};
        const std::size_t got = file.readAt(*place, bytes.data(), bytes.size());
        const auto page = PageHeader::at(std::span(bytes).first(got));
        if (!page) {
            break;
        }
        const std::uint64_t content = *place + page->size();
        const std::uint64_t end = content + page->contentSize();
        const std::uint64_t from = std::max(offset, content);
        const std::size_t wanted = std::min<std::uint64_t>(size - done, end - std::min(from, end));
        const std::size_t moved = file.readAt(from, out + done, wanted);
        done += moved;
        if (moved < wanted) {
            break;
        }
        offset = 0;  // the pages that follow are read from their beginning
    }
    return done;
}

}  // namespace zav::detail
