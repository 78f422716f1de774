#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"
#include "ZAVAudioStreaming/formats/SbcFileHeader.hpp"

namespace zav {
namespace {

constexpr std::uint32_t kBitsPerChannel = 16;

const std::shared_ptr<AudioStreamOutputable>& requireSbc(
    const std::shared_ptr<AudioStreamOutputable>& upstream) {
    const AudioStreamBasicDescription format = upstream->outDataFormat();
    const bool isKnownRate = std::find(kSbcRatesInHz.begin(), kSbcRatesInHz.end(),
                                       format.mSampleRate) != kSbcRatesInHz.end();
    if (format.mFormatID != kAudioFormatSbc || !isKnownRate ||
        (format.mChannelsPerFrame != 1 && format.mChannelsPerFrame != 2) ||
        format.mBitsPerChannel != kBitsPerChannel) {
        throw AudioStreamError::unacceptableData();
    }
    return upstream;
}

}  // namespace

ZAVSbcFileSink::ZAVSbcFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                               std::filesystem::path fileUrl)
    : ContainerFileSink(requireSbc(upstream), std::move(fileUrl)) {}

void ZAVSbcFileSink::writeFileMeta() {
    SbcFileHeader header;
    fillCommonFields(header);
    const auto flags = SbcFormatFlags::unpacked(inDataFormat().mFormatFlags);
    header.endianness = flags.isBigEndian ? 1 : 0;
    header.subbands = flags.is8Subbands ? 1 : 0;
    header.blocks = flags.blocks;
    header.allocation = flags.isSnr ? 1 : 0;
    header.bitpool = flags.bitpool;
    const auto bytes = header.toBytes();
    fileHandle().write(bytes.data(), bytes.size());
}

void ZAVSbcFileSink::receiveAudio(const void* bytes, std::uint64_t size,
                                  std::uint64_t /*packetNum*/,
                                  const AudioStreamPacketDescription* /*packetDescriptions*/) {
    const auto byteCount = static_cast<std::size_t>(checkedCast<std::int64_t>(size));
    FileHandle& file = fileHandle();
    try {
        file.write(bytes, byteCount);
    } catch (const std::system_error& error) {
        fatalError(std::string("Writing sbc data to file failed: ") + error.what());
    }
}

}  // namespace zav
