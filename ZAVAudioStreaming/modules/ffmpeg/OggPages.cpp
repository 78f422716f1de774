#include "ZAVAudioStreaming/modules/ffmpeg/OggPages.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>
#include <utility>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

constexpr std::size_t kFixedHeaderSize = 27;
constexpr std::size_t kLongestHeader = kFixedHeaderSize + 255;
constexpr std::string_view kCapturePattern = "OggS";
constexpr std::size_t kFullSegment = 255;

/// A view of a page, or at least of its header (RFC 3533, section 6):
///
///     offset  0  capture pattern "OggS"
///             4  version, 0
///             5  flags: 1 begins with the rest of a packet, 2 first of its stream, 4 last
///             6  granule position, 8 bytes
///            14  serial number of the stream, 4 bytes
///            18  page number, 4 bytes
///            22  checksum, 4 bytes
///            26  number of segments, then the size of each in a byte
///
/// Integers are little-endian. If a segment has 255 bytes, the next segment continues it.
class PageView {
 public:
    /// Empty unless the bytes begin with a whole header.
    static std::optional<PageView> at(std::span<const std::byte> bytes) {
        if (bytes.size() < kFixedHeaderSize || !beginsWithPattern(bytes) ||
            bytes[4] != std::byte{0} ||
            bytes.size() < kFixedHeaderSize + std::to_integer<std::size_t>(bytes[26])) {
            return std::nullopt;
        }
        return PageView(bytes);
    }

    bool isContinued() const { return (bytes_[5] & std::byte{1}) != std::byte{0}; }
    bool isFirst() const { return (bytes_[5] & std::byte{2}) != std::byte{0}; }
    bool isLast() const { return (bytes_[5] & std::byte{4}) != std::byte{0}; }
    std::int64_t granule() const {
        return static_cast<std::int64_t>(littleEndianAt(bytes_.subspan(6, 8)));
    }
    std::uint64_t serial() const { return littleEndianAt(bytes_.subspan(14, 4)); }
    std::uint64_t number() const { return littleEndianAt(bytes_.subspan(18, 4)); }
    std::span<const std::byte> segmentSizes() const {
        return bytes_.subspan(kFixedHeaderSize, std::to_integer<std::size_t>(bytes_[26]));
    }
    std::size_t headerSize() const { return kFixedHeaderSize + segmentSizes().size(); }
    std::size_t contentSize() const {
        const auto sizes = segmentSizes();
        return std::accumulate(sizes.begin(), sizes.end(), std::size_t{0},
                               [](std::size_t sum, std::byte size) {
                                   return sum + std::to_integer<std::size_t>(size);
                               });
    }
    std::size_t size() const { return headerSize() + contentSize(); }
    /// Only for a view of the whole page.
    std::span<const std::byte> content() const {
        return bytes_.subspan(headerSize(), contentSize());
    }

 private:
    explicit PageView(std::span<const std::byte> bytes) : bytes_(bytes) {}

    static bool beginsWithPattern(std::span<const std::byte> bytes) {
        return std::string_view(reinterpret_cast<const char*>(bytes.data()),
                                kCapturePattern.size()) == kCapturePattern;
    }

    std::span<const std::byte> bytes_;
};

/// The offset of the next capture pattern from `offset` on; the file's size if there is none.
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

bool beginsWith(std::span<const std::byte> bytes, std::span<const std::byte> start) {
    return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

/// Joins the segments of one stream's pages into packets.
class PacketJoiner {
 public:
    /// `take` receives each whole packet. It returns false to stop.
    explicit PacketJoiner(const std::function<bool(const OggPacket&)>& take) : take_(take) {}

    /// Drops the unfinished packet, because the rest of it is lost.
    void drop() { packet_.reset(); }

    /// Adds the next whole page of the stream. `pageOffset` is the offset of the page in the file.
    /// Returns false once `take` has returned false.
    bool add(const PageView& page, std::uint64_t pageOffset) {
        if (!page.isContinued() || page.number() != nextPageNumber_) {
            drop();
        }
        nextPageNumber_ = (page.number() + 1) & UINT32_MAX;
        const auto sizes = page.segmentSizes();
        const std::size_t lastEnd = lastEndIn(sizes);
        const auto content = page.content();
        const std::uint64_t contentOffset = pageOffset + page.headerSize();
        bool isBetweenPackets = !page.isContinued();
        std::size_t at = 0;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            if (isBetweenPackets) {
                packet_ = OggPacket{contentOffset + at, 0, {}, std::nullopt};
            }
            const auto segment = content.subspan(at, std::to_integer<std::size_t>(sizes[i]));
            at += segment.size();
            append(segment);
            isBetweenPackets = segment.size() < kFullSegment;
            if (isBetweenPackets && !handOut(i == lastEnd, page.granule())) {
                return false;
            }
        }
        return true;
    }

 private:
    /// The index of the last segment that ends a packet; the number of segments if there is none.
    static std::size_t lastEndIn(std::span<const std::byte> sizes) {
        for (std::size_t i = sizes.size(); i-- > 0;) {
            if (std::to_integer<std::size_t>(sizes[i]) < kFullSegment) {
                return i;
            }
        }
        return sizes.size();
    }

    void append(std::span<const std::byte> segment) {
        if (packet_) {
            const std::size_t filled = std::min<std::size_t>(packet_->size, start_.size());
            std::copy_n(segment.begin(), std::min(segment.size(), start_.size() - filled),
                        start_.begin() + static_cast<std::ptrdiff_t>(filled));
            packet_->size += static_cast<std::uint32_t>(segment.size());
        }
    }

    bool handOut(bool isLastOfPage, std::int64_t granule) {
        std::optional<OggPacket> packet = std::exchange(packet_, std::nullopt);
        if (!packet) {
            return true;
        }
        packet->start = std::span(start_).first(std::min<std::size_t>(packet->size, start_.size()));
        if (isLastOfPage && granule >= 0) {
            packet->granule = granule;
        }
        return take_(*packet);
    }

    const std::function<bool(const OggPacket&)>& take_;
    std::optional<OggPacket> packet_;  // the unfinished packet; empty if its start was lost
    std::array<std::byte, OggPacket::kStartSize> start_{};
    std::uint64_t nextPageNumber_ = 0;
};

}  // namespace

void OggPages::walk(const FileHandle& file, std::span<const std::byte> firstBytes,
                    const std::function<bool(const OggPacket&)>& take) {
    pageOffsets_.clear();
    isChained_ = false;
    FileWindow window(file);
    PacketJoiner packets(take);
    std::optional<std::uint64_t> serial;
    bool hasEnded = false;
    for (std::uint64_t offset = 0; offset < window.fileSize();) {
        const auto header = PageView::at(window.at(offset, kLongestHeader));
        if (!header) {
            offset = findPage(window, offset + 1);
            packets.drop();
            continue;
        }
        const std::uint64_t pageOffset = offset;
        const std::size_t pageSize = header->size();
        offset += pageSize;
        // This call can move the window, so the header is read again.
        const auto bytes = window.at(pageOffset, pageSize);
        const auto page = PageView::at(bytes);
        if (!page || bytes.size() < pageSize) {
            return;  // the file ends within the page
        }
        if (!serial && page->isFirst() && beginsWith(page->content(), firstBytes)) {
            serial = page->serial();
        }
        if (!serial) {
            continue;
        }
        // All multiplexed streams begin before any of them continues.
        if (page->isFirst() && pageOffsets_.size() > 1) {
            isChained_ = true;
            return;
        }
        if (page->serial() != *serial || hasEnded) {
            continue;
        }
        pageOffsets_.push_back(pageOffset);
        if (!packets.add(*page, pageOffset)) {
            return;
        }
        hasEnded = page->isLast();
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
        const auto page = PageView::at(std::span(bytes).first(got));
        if (!page) {
            break;
        }
        const std::uint64_t content = *place + page->headerSize();
        const std::uint64_t end = content + page->contentSize();
        const std::uint64_t from = std::max(offset, content);
        const std::size_t wanted = std::min<std::uint64_t>(size - done, end - std::min(from, end));
        const std::size_t moved = file.readAt(from, out + done, wanted);
        done += moved;
        if (moved < wanted) {
            break;
        }
        offset = 0;  // the next page is read from its first content byte
    }
    return done;
}

}  // namespace zav::detail
