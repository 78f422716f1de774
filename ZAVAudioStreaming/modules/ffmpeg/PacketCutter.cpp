#include "ZAVAudioStreaming/modules/ffmpeg/PacketCutter.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace zav::detail {
namespace {

bool isParsed(AVCodecID codec, std::byte first) {
    switch (codec) {
        case AV_CODEC_ID_MP1:
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_MP3:
        case AV_CODEC_ID_FLAC:
        case AV_CODEC_ID_AC3:
            return true;
        case AV_CODEC_ID_AAC:
            // A packet without an ADTS header cannot start with this byte, because this byte is the
            // code that ends a packet.
            return first == std::byte{0xFF};
        default:
            return false;
    }
}

/// The most bytes that a parser holds for real packets. Parsers hold one packet of a few kilobytes.
/// Only FLAC's parser holds ten, each with up to 65535 frames of eight channels of 32 bits.
std::size_t mostHeldBytes(AVCodecID codec) {
    constexpr std::size_t kMost = 65536;
    constexpr std::size_t kMostOfFlac = 10 * 65536 * 8 * 4;
    return codec == AV_CODEC_ID_FLAC ? kMostOfFlac : kMost;
}

}  // namespace

void PacketCutter::cut(std::span<const std::byte> bytes, const Take& take) {
    if (bytes.empty()) {
        return;
    }
    if (constantSize_ != 0) {
        cutBySize(bytes, take);
        return;
    }
    if (!hasBegun_ && isParsed(codec_, bytes.front())) {
        startParser();
    }
    hasBegun_ = true;
    if (parser_ == nullptr) {
        take(bytes);
    } else {
        parse(bytes, take);
    }
}

void PacketCutter::startParser() {
    context_ = makeCodecContext(nullptr);
    context_->codec_id = codec_;
    parser_.reset(av_parser_init(codec_));
    if (parser_ == nullptr) {
        throw std::bad_alloc();
    }
    heldBytes_ = 0;
}

void PacketCutter::cutBySize(std::span<const std::byte> bytes, const Take& take) {
    if (!remainder_.empty()) {
        const auto missing = bytes.first(std::min(constantSize_ - remainder_.size(), bytes.size()));
        remainder_.insert(remainder_.end(), missing.begin(), missing.end());
        bytes = bytes.subspan(missing.size());
        if (remainder_.size() < constantSize_) {
            return;
        }
        take(remainder_);
    }
    for (; bytes.size() >= constantSize_; bytes = bytes.subspan(constantSize_)) {
        take(bytes.first(constantSize_));
    }
    remainder_.assign(bytes.begin(), bytes.end());
}

void PacketCutter::parse(std::span<const std::byte> bytes, const Take& take) {
    // Parsers read a little beyond the end of their input.
    std::array<std::uint8_t, 4096 + AV_INPUT_BUFFER_PADDING_SIZE> piece{};
    constexpr std::size_t kPieceSize = piece.size() - AV_INPUT_BUFFER_PADDING_SIZE;
    while (!bytes.empty()) {
        const std::size_t size = std::min(bytes.size(), kPieceSize);
        std::memcpy(piece.data(), bytes.data(), size);
        std::memset(piece.data() + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
        for (std::size_t done = 0; done < size;) {
            done += parseOnce(piece.data() + done, size - done, take);
        }
        if (heldBytes_ > mostHeldBytes(codec_)) {
            // This many bytes without a packet are junk. Some parsers would keep all of the junk.
            startParser();
        }
        bytes = bytes.subspan(size);
    }
}

std::size_t PacketCutter::parseOnce(const std::uint8_t* bytes, std::size_t size, const Take& take) {
    std::uint8_t* packet = nullptr;
    int packetSize = 0;
    const int taken = av_parser_parse2(parser_.get(), context_.get(), &packet, &packetSize, bytes,
                                       static_cast<int>(size), AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
    heldBytes_ = packetSize > 0 ? 0 : heldBytes_ + size;
    if (packetSize > 0) {
        take(std::as_bytes(std::span(packet, static_cast<std::size_t>(packetSize))));
    }
    const bool isStuck = taken < 0 || (taken == 0 && packetSize <= 0);
    return isStuck ? size : static_cast<std::size_t>(taken);
}

void PacketCutter::finish(const Take& take) {
    if (parser_ != nullptr) {
        bool isMore = true;
        while (isMore) {
            isMore = false;
            parseOnce(nullptr, 0, [&](std::span<const std::byte> packet) {
                isMore = true;
                take(packet);
            });
        }
    }
    reset();
}

void PacketCutter::reset() {
    remainder_.clear();
    parser_.reset();
    context_.reset();
    hasBegun_ = false;
}

}  // namespace zav::detail
