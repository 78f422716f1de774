// Decodes any stream in any format with the decoder of an output queue. The result must be whole
// frames of PCM or nothing, never a crash or a hang. The memory in use must stay in proportion to
// the input.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"
#include "fuzz/MemoryFile.hpp"

namespace {

using zav::fuzz::require;

/// The fuzzer's input. Each call consumes bytes from the front. After the end, numbers are 0.
class Input {
 public:
    explicit Input(std::span<const std::uint8_t> bytes) : bytes_(std::as_bytes(bytes)) {}

    bool isEmpty() const { return bytes_.empty(); }

    std::vector<std::byte> take(std::size_t size) {
        const auto front = bytes_.first(std::min(size, bytes_.size()));
        bytes_ = bytes_.subspan(front.size());
        return {front.begin(), front.end()};
    }

    std::uint32_t number(std::size_t size = 1) {
        return static_cast<std::uint32_t>(zav::detail::bigEndianAt(take(size)));
    }

    template <class Value, std::size_t count>
    Value oneOf(const std::array<Value, count>& values) {
        return values[number() % count];
    }

 private:
    std::span<const std::byte> bytes_;
};

zav::AudioStreamBasicDescription takeFormat(Input& input) {
    constexpr std::array kFormats = {zav::kAudioFormatMPEG4AAC,   zav::kAudioFormatMPEGLayer1,
                                     zav::kAudioFormatMPEGLayer2, zav::kAudioFormatMPEGLayer3,
                                     zav::kAudioFormatALAC,       zav::kAudioFormatFLAC,
                                     zav::kAudioFormatOpus,       zav::kAudioFormatVorbis,
                                     zav::kAudioFormatAC3,        zav::kAudioFormatAMR};
    constexpr std::array kRates = {8000.0, 44100.0, 48000.0, 192000.0, 0.5};
    constexpr std::array kFrameCounts = {0U, 1024U, 4096U, 65535U, 65536U};
    zav::AudioStreamBasicDescription format;
    format.mFormatID = input.oneOf(kFormats);
    format.mSampleRate = input.oneOf(kRates);
    format.mFramesPerPacket = input.oneOf(kFrameCounts);
    format.mChannelsPerFrame = input.number() % 10;
    format.mFormatFlags = input.number() % 6;
    format.mBytesPerPacket = input.number();
    return format;
}

void decodeDescribed(Input& input, zav::detail::QueueDecoder& decoder,
                     std::vector<std::byte>& pcm) {
    const auto bytes = input.take(input.number(2));
    std::vector<zav::AudioStreamPacketDescription> places(input.number() % 8);
    for (auto& place : places) {
        place.mStartOffset = input.number(2) % (bytes.size() + 1);
        place.mDataByteSize =
            std::min(input.number(2), static_cast<std::uint32_t>(bytes.size()) -
                                          static_cast<std::uint32_t>(place.mStartOffset));
    }
    decoder.decode(bytes, places, pcm);
}

void decodeStream(Input& input, zav::detail::QueueDecoder& decoder) {
    // `finish` costs one byte of input but makes a new decoder, so the calls are limited.
    constexpr int kMostCalls = 50;
    std::vector<std::byte> pcm;
    for (int call = 0; call < kMostCalls && !input.isEmpty(); ++call) {
        switch (input.number() % 8) {
            case 0:
                decoder.finish(pcm);
                break;
            case 1:
                decoder.reset();
                break;
            case 2:
            case 3:
                decodeDescribed(input, decoder, pcm);
                break;
            default:
                decoder.decode(input.take(input.number(2)), {}, pcm);
        }
        require(pcm.size() % decoder.pcmFormat().mBytesPerFrame == 0);
        pcm.clear();
    }
    decoder.finish(pcm);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    std::unique_ptr<zav::detail::QueueDecoder> decoder;
    try {
        decoder = zav::detail::moduleTable<zav::detail::CompressedCodecs>()->makeDecoder(
            takeFormat(input));
    } catch (const zav::detail::StatusFailure&) {
        return 0;
    }
    if (const auto cookie = input.take(input.number(2)); !cookie.empty()) {
        try {
            decoder->setMagicCookie(cookie);
        } catch (const zav::detail::StatusFailure&) {
            // The decoder keeps its state after a refused cookie.
        }
    }
    decodeStream(input, *decoder);
    return 0;
}
