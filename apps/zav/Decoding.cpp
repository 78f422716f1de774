#include "Decoding.hpp"

#include <ZAVAudioStreaming/codecs/OpusDecoder.hpp>
#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/codecs/SBCDecoder.hpp>
#include <ZAVAudioStreaming/core/AudioStreamError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/OpusPacket.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <utility>

#include "Container.hpp"
#include "Failure.hpp"
#include "FormatText.hpp"
#include "Hint.hpp"
#include "Stream.hpp"

namespace zavtool {
namespace {

using Configuration = zav::SBCCoding::SBCConfiguration;

/// Returns the reason why the decoder cannot take this frame, or an empty text if it can. The
/// decoder treats every two-channel stream as plain stereo and ends the process at a frame of
/// another length. So check the first frame before the decoder gets the frame.
std::string unsuitableFrame(std::span<const std::byte> frame,
                            const zav::AudioStreamBasicDescription& sbc) {
    const auto inFrame = Configuration::fromFrame(frame.data(), frame.size());
    const std::size_t decoderLength = Configuration::fromDataFormat(sbc)->frameLen();
    if (inFrame == nullptr || frame.size() == decoderLength) {
        return "";
    }
    return std::string(nameOf(inFrame->mode)) + " frames of " + std::to_string(frame.size()) +
           " bytes, where plain stereo has " + std::to_string(decoderLength) +
           "; use mono or plain stereo";
}

void requireFramesOfOneLength(const std::filesystem::path& input,
                              const zav::AudioStreamBasicDescription& sbc) {
    if (const auto container = examineSbcContainer(input)) {
        if (const auto problem = unsuitableFrame(container->firstFrame, sbc); !problem.empty()) {
            throw Failure(input, problem + rawSbcHint(input, false));
        }
        return;  // one header describes all frames
    }
    const OpenAudioFile file = openAudioFile(input);
    if (const auto problem = unsuitableFrame(firstPacket(file, input), sbc); !problem.empty()) {
        throw Failure(input, problem + decodeElsewhereHint(input));
    }
    const auto frameCount = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataPacketCount);
    const auto byteCount = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataByteCount);
    const auto longestFrame =
        zav::audioFileProperty<std::uint32_t>(file.get(), zav::kAudioFilePropertyMaximumPacketSize);
    if (longestFrame != sbc.mBytesPerPacket || byteCount != frameCount * longestFrame) {
        throw Failure(input, "frames of different lengths, the longest " +
                                 std::to_string(longestFrame) + " bytes; use frames of one length");
    }
}

/// Applies the header of an Opus file to the decoded audio. Drops the frames of the pre-skip and
/// the frames after the end of the stream. Multiplies the other frames by the gain (RFC 7845,
/// sections 4 and 5.1).
class OpusHeadFilter : public Relay {
 public:
    OpusHeadFilter(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                   std::shared_ptr<zav::PeripheralSource> next, std::span<const std::byte> opusHead,
                   std::uint64_t heardFrames)
        : Relay(key, upstream, std::move(next)),
          bytesPerFrame_(inDataFormat().mBytesPerFrame),
          gain_(zav::opusGain(opusHead)),
          skippedFrames_(zav::opusPreSkip(opusHead)),
          heardFrames_(heardFrames) {}

    void receiveAudio(const void* bytes, std::uint64_t /*size*/, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* /*descriptions*/) override {
        const std::uint64_t skipped = std::min(packetNum, skippedFrames_);
        const std::uint64_t heard = std::min(packetNum - skipped, heardFrames_);
        skippedFrames_ -= skipped;
        heardFrames_ -= heard;
        const std::uint64_t size = heard * bytesPerFrame_;
        const auto* const start = static_cast<const std::byte*>(bytes) + skipped * bytesPerFrame_;
        if (gain_ == 1) {
            Relay::receiveAudio(start, size, heard, nullptr);
            return;
        }
        std::vector<std::int16_t> samples(size / sizeof(std::int16_t));
        std::memcpy(samples.data(), start, size);
        for (std::int16_t& sample : samples) {
            sample = static_cast<std::int16_t>(
                std::clamp(std::nearbyint(sample * gain_), double{INT16_MIN}, double{INT16_MAX}));
        }
        Relay::receiveAudio(samples.data(), size, heard, nullptr);
    }

 private:
    std::uint32_t bytesPerFrame_;
    double gain_;
    std::uint64_t skippedFrames_;
    std::uint64_t heardFrames_;
};

}  // namespace

Decoding makeSbcDecoder(const Input& input, const std::filesystem::path& path, bool isBigEndian) {
    zav::AudioStreamBasicDescription sbc = input.format();
    requireFramesOfOneLength(path, sbc);
    auto stream = input.node();
    if (isBigEndian) {
        // SBC frames have no byte order. The stream's format sets the byte order of the decoded
        // samples.
        sbc.mFormatFlags |= zav::kSbcFormatFlagIsBigEndian;
        stream = redeclared(stream, sbc);
    }
    return {zav::makeNode<zav::SBCDecoder>(stream), "SBCDecoder"};
}

bool isDecodable(const SbcContainer& container) {
    return unsuitableFrame(container.firstFrame, container.format).empty();
}

Decoding makeOpusDecoder(const Input& input, const std::filesystem::path& path) {
    std::shared_ptr<zav::OpusDecoder> decoder;
    try {
        decoder = zav::makeNode<zav::OpusDecoder>(input.node());
    } catch (const zav::AudioStreamError&) {
        throw Failure(path,
                      inWords(input.format()) +
                          "; use Opus, mono or stereo, 8000, 12000, 16000, 24000 or 48000 Hz");
    }
    const auto opusHead = input.magicCookie();
    if (!opusHead) {
        return {decoder, "OpusDecoder"};
    }
    const auto heardFrames = static_cast<std::uint64_t>(
        std::llround(input.durationInSeconds() * decoder->outDataFormat().mSampleRate));
    const auto trimmed = zav::makeNode<zav::PeripheralSource>();
    trimmed->setOutDataFormat(decoder->outDataFormat());
    zav::makeNode<OpusHeadFilter>(decoder, trimmed, *opusHead, heardFrames);
    return {trimmed, "OpusDecoder -> PeripheralSource"};
}

}  // namespace zavtool
