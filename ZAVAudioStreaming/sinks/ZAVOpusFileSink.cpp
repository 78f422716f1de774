#include "ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp"

#include <array>
#include <string>
#include <system_error>
#include <utility>

#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::array kRatesInHz = {8000.0, 16000.0, 32000.0, 44100.0, 48000.0};

}  // namespace

ZAVOpusFileSink::ZAVOpusFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                                 std::filesystem::path fileUrl)
    : ContainerFileSink(requireOpus(upstream), std::move(fileUrl)) {}

const std::shared_ptr<AudioStreamOutputable>& ZAVOpusFileSink::requireOpus(
    const std::shared_ptr<AudioStreamOutputable>& upstream) {
    if (upstream->outDataFormat().mFormatID != kAudioFormatOpus ||
        !hasRateOf(kRatesInHz, *upstream) || !isMonoOrStereo(*upstream)) {
        throw AudioStreamError::unacceptableData();
    }
    return upstream;
}

void ZAVOpusFileSink::writeFileMeta() {
    OpusFileHeader header;
    fillCommonFields(header);
    const auto bytes = header.toBytes();
    fileHandle().write(bytes.data(), bytes.size());
}

void ZAVOpusFileSink::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                                   const AudioStreamPacketDescription* packetDescriptions) {
    const auto* const chunk = static_cast<const std::byte*>(bytes);
    const auto packetCount = checkedCast<std::int64_t>(packetNum);
    if (packetCount == 0) {
        return;
    }
    if (packetDescriptions != nullptr) {
        for (std::int64_t i = 0; i < packetCount; ++i) {
            writeRecord(chunk + packetDescriptions[i].mStartOffset,
                        packetDescriptions[i].mDataByteSize);
        }
        return;
    }
    const auto packetLength = checkedCast<std::uint32_t>(size / packetNum);
    for (std::int64_t i = 0; i < packetCount; ++i) {
        writeRecord(chunk + i * packetLength, packetLength);
    }
}

void ZAVOpusFileSink::writeRecord(const std::byte* packet, std::uint32_t packetLength) {
    const auto header = OpusRecordHeader{packetLength}.toBytes();
    try {
        fileHandle().write(header.data(), header.size());
        fileHandle().write(packet, packetLength);
    } catch (const std::system_error& error) {
        fatalError(FatalCause::containerWriting, error.code().value(),
                   std::string("Writting to opus file failed: ") + error.what());
    }
}

}  // namespace zav
