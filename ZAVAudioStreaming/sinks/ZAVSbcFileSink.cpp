#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"

#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "ZAVAudioStreaming/containers/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/SBCHeader.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::uint32_t kBitsPerChannel = 16;

}  // namespace

ZAVSbcFileSink::ZAVSbcFileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                               std::filesystem::path fileUrl)
    : ContainerFileSink(requireSbc(upstream), std::move(fileUrl)) {}

const std::shared_ptr<AudioStreamOutputable>& ZAVSbcFileSink::requireSbc(
    const std::shared_ptr<AudioStreamOutputable>& upstream) {
    const std::vector<double> rates(kSbcRatesInHz.begin(), kSbcRatesInHz.end());
    if (upstream->outDataFormat().mFormatID != kAudioFormatSbc || !hasRateOf(rates, *upstream) ||
        !isMonoOrStereo(*upstream) ||
        upstream->outDataFormat().mBitsPerChannel != kBitsPerChannel) {
        throw AudioStreamError::unacceptableData();
    }
    return upstream;
}

void ZAVSbcFileSink::writeFileMeta() {
    SbcFileHeader header;
    fillCommonFields(header);
    const auto flags = [this] { return SbcFormatFlags::unpacked(inDataFormat().mFormatFlags); };
    header.endianness = flags().isBigEndian ? 1 : 0;
    header.subbands = flags().is8Subbands ? 1 : 0;
    header.blocks = flags().blocks;
    header.allocation = flags().isSnr ? 1 : 0;
    header.bitpool = flags().bitpool;
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
        fatalError(FatalCause::containerWriting, error.code().value(),
                   std::string("Writing sbc data to file failed: ") + error.what());
    }
}

}  // namespace zav
