// Reads any bytes as an Opus container and as an SBC container. The only allowed results are
// packets inside their chunk, and the documented errors and fatal stops. The SBC source refuses
// every file by its magic text, so a second pass opens the file after that check.

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <utility>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"
#include "ZAVAudioStreaming/sources/ZAVSbcFileSource.hpp"
#include "fuzz/MemoryFile.hpp"

namespace {

using zav::fuzz::require;

/// Stands for a documented fatal stop. The handler throws this, because the process must go on.
struct PromisedStop {};

void expectPromisedStop(const zav::FatalStop& stop) {
    constexpr std::array<std::string_view, 4> kPromised = {
        "Reading the packet length field from opus file failed",
        "The sample rate of the SBC file is not one of SBC's",
        "The block count code of the SBC file is not 0 to 3",
        "Division by zero",
    };
    if (std::find(kPromised.begin(), kPromised.end(), stop.text) != kPromised.end()) {
        throw PromisedStop();
    }
}

/// Reads every byte that it receives.
class CheckingSink : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* descriptions) override {
        byteCount += size;
        const auto* const chunk = static_cast<const std::uint8_t*>(bytes);
        std::uint64_t expectedStart = 0;
        for (std::uint64_t i = 0; descriptions != nullptr && i < packetNum; ++i) {
            require(static_cast<std::uint64_t>(descriptions[i].mStartOffset) == expectedStart);
            require(descriptions[i].mDataByteSize <= size - expectedStart);
            expectedStart += descriptions[i].mDataByteSize;
        }
        require(descriptions == nullptr || expectedStart == size);
        for (std::uint64_t i = 0; i < size; ++i) {
            checksum += chunk[i];
        }
    }

    std::uint64_t byteCount = 0;
    std::uint64_t checksum = 0;
};

class OpenedSbcFileSource : public zav::ZAVSbcFileSource {
 public:
    OpenedSbcFileSource(zav::NodeKey key, const std::string& path)
        : ZAVSbcFileSource(key, open(path)) {}

 private:
    static OpenedFile open(const std::string& path) {
        auto file = zav::FileHandle::openForReading(path);
        std::array<std::byte, zav::SbcFileHeader::kByteCount> header{};
        readHeader(file, header);
        return openBehindMagic(std::move(file), header);
    }
};

/// Reads repeatedly and doubles the number of packets each time.
template <class Source>
void readThrough(const std::string& path, std::size_t fileSize) {
    const auto source = zav::makeNode<Source>(path);
    const auto sink = zav::makeNode<CheckingSink>(source);
    for (std::int64_t count = 1; count < (std::int64_t{1} << 40U); count *= 2) {
        source->readPackets(count);
        require(sink->byteCount <= fileSize);
    }
}

template <class Source>
void expectPromises(const std::string& path, std::size_t fileSize) {
    zav::setFatalErrorHandler(expectPromisedStop);
    try {
        readThrough<Source>(path, fileSize);
    } catch (const zav::AudioFileError& error) {
        require(error == zav::AudioFileError::invalidFormat() ||
                error == zav::AudioFileError::noMoreData());
    } catch (const PromisedStop&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = zav::fuzz::memoryFile(data, size);
    expectPromises<zav::ZAVOpusFileSource>(path, size);
    // Reads only inputs with the magic text. Both calls make codec states, and each codec state
    // leaks memory of libsbc.
    if (size >= zav::SbcFileHeader::kByteCount &&
        std::equal(zav::SbcFileHeader::kMagicText.begin(), zav::SbcFileHeader::kMagicText.end(),
                   data)) {
        expectPromises<zav::ZAVSbcFileSource>(path, size);
        expectPromises<OpenedSbcFileSource>(path, size);
    }
    return 0;
}
