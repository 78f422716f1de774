// The cost of the nodes for the library's own two file formats, compared with plain system calls.
// Each side has a file of its own (below TMPDIR). Before each slice, outside the measured time, the
// writers make a new file with a header, and the readers reopen their file. NodeComparison.hpp
// describes the comparison.
//
//   OpusFileSink    against two write(2) a record, in chunks of 1 and 8 packets of about 125 bytes
//   OpusFileSource  against two read(2) a record into one buffer that is kept, 1 and 64 packets at
//                   a time
//   SBCFileSink     against one write(2) a chunk, of 1, 12 and 62 SBC frames
//
// The noise floors run the plain calls against themselves.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "Chunks.hpp"
#include "NodeComparison.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"
#include "ZAVAudioStreaming/containers/SbcFileHeader.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp"
#include "ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp"
#include "ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::benchmarks {
namespace {

constexpr std::size_t kRecordsPerSlice = 1024;
constexpr std::size_t kSbcChunksPerSlice = 256;
constexpr std::size_t kSbcFrameLength = 72;

using RecordHeader = std::array<std::byte, OpusRecordHeader::kByteCount>;

/// Packets of 100 to 150 bytes.
Packets slicePackets() {
    Packets packets;
    for (std::uint32_t i = 0; i < kRecordsPerSlice; ++i) {
        packets.push_back(test::testBytes(100 + i * 37 % 51, i));
    }
    return packets;
}

AudioStreamBasicDescription sbcFormatWithBits() {
    auto format = sbcFormat(SBCCoding::SBCConfiguration(), 16000, 1);
    format.mBitsPerChannel = 16;
    return format;
}

/// Makes a new file instead of truncating the old one. ext4 writes a truncated file to the disk
/// when the file is closed.
void makeNewFile(const std::filesystem::path& path) {
    std::filesystem::remove(path);
    test::writeFile(path, {});
}

/// A descriptor for plain calls. Checks the results as the nodes do.
class PlainFile {
 public:
    PlainFile() = default;
    ~PlainFile() { ::close(descriptor_); }

    PlainFile(const PlainFile&) = delete;
    PlainFile& operator=(const PlainFile&) = delete;

    void reopen(const std::filesystem::path& path, int flags) {
        ::close(descriptor_);
        descriptor_ = ::open(path.c_str(), flags | O_CLOEXEC);
        require(descriptor_ != -1);
    }
    void write(const void* bytes, std::size_t size) {
        require(::write(descriptor_, bytes, size) == static_cast<ssize_t>(size));
    }
    void read(void* buffer, std::size_t size) {
        require(::read(descriptor_, buffer, size) == static_cast<ssize_t>(size));
    }

 private:
    int descriptor_ = -1;
};

/// The file of both kinds of plain writers.
class PlainWriter {
 public:
    explicit PlainWriter(std::size_t headerSize) : header_(headerSize) {}

    void prepareSlice() {
        makeNewFile(path_);
        file_.reopen(path_, O_WRONLY);
        file_.write(header_.data(), header_.size());
    }

 protected:
    PlainFile& file() { return file_; }

 private:
    test::TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "file";
    std::vector<std::byte> header_;
    PlainFile file_;
};

/// A sink with its file and source.
template <class Sink>
class SinkGraph {
 public:
    explicit SinkGraph(const AudioStreamBasicDescription& format) {
        source_->setOutDataFormat(format);
        makeNode<Sink>(source_, path_);
        source_->downstreams().onAudioStreamFlowStart();
    }

    void prepareSlice() {
        source_->downstreams().onAudioStreamFlowEnd();
        makeNewFile(path_);
        source_->downstreams().onAudioStreamFlowStart();
    }

 protected:
    const PeripheralSource& source() const { return *source_; }

 private:
    test::TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "file";
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

class PlainOpusWriter : public PlainWriter {
 public:
    explicit PlainOpusWriter(const std::vector<PacketChunk>& chunks)
        : PlainWriter(OpusFileHeader::kByteCount), chunks_(chunks) {}

    void runChunk(std::size_t index) {
        const PacketChunk& chunk = chunks_[index];
        for (const auto& description : chunk.descriptions) {
            RecordHeader header;
            header.fill(std::byte{0xFF});
            std::memcpy(header.data(), &description.mDataByteSize, sizeof(std::uint32_t));
            const auto packet = chunk.packet(description);
            file().write(header.data(), header.size());
            file().write(packet.data(), packet.size());
        }
    }

 private:
    const std::vector<PacketChunk>& chunks_;
};

class OpusSinkGraph : public SinkGraph<ZAVOpusFileSink> {
 public:
    explicit OpusSinkGraph(const std::vector<PacketChunk>& chunks)
        : SinkGraph(opusFormat(16000, 1)), chunks_(chunks) {}

    void runChunk(std::size_t index) { push(source(), chunks_[index]); }

 private:
    const std::vector<PacketChunk>& chunks_;
};

class PlainOpusReader {
 public:
    PlainOpusReader(std::filesystem::path path, std::size_t packetsPerRead)
        : path_(std::move(path)), packetsPerRead_(packetsPerRead) {}

    void prepareSlice() {
        file_.reopen(path_, O_RDONLY);
        file_.read(buffer_.data(), OpusFileHeader::kByteCount);
    }

    void runChunk(std::size_t /*index*/) {
        std::byte* end = buffer_.data();
        for (std::size_t i = 0; i < packetsPerRead_; ++i) {
            RecordHeader header;
            file_.read(header.data(), header.size());
            std::uint32_t packetLength = 0;
            std::memcpy(&packetLength, header.data(), sizeof packetLength);
            file_.read(end, packetLength);
            end += packetLength;
        }
        benchmark::ClobberMemory();
    }

 private:
    std::filesystem::path path_;
    std::size_t packetsPerRead_;
    PlainFile file_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(std::size_t{64} * 1024);
};

class OpusSourceGraph {
 public:
    OpusSourceGraph(std::filesystem::path path, std::size_t packetsPerRead)
        : path_(std::move(path)), packetsPerRead_(static_cast<std::int64_t>(packetsPerRead)) {}

    void prepareSlice() {
        source_ = makeNode<ZAVOpusFileSource>(path_);
        makeNode<PeripheralSink>(source_);
    }

    void runChunk(std::size_t /*index*/) { source_->readPackets(packetsPerRead_); }

 private:
    std::filesystem::path path_;
    std::int64_t packetsPerRead_;
    std::shared_ptr<ZAVOpusFileSource> source_;
};

class PlainSbcWriter : public PlainWriter {
 public:
    explicit PlainSbcWriter(const EqualChunks& chunks)
        : PlainWriter(SbcFileHeader::kByteCount), chunks_(chunks) {}

    void runChunk(std::size_t index) {
        const auto frames = chunks_[index];
        file().write(frames.data(), frames.size());
    }

 private:
    EqualChunks chunks_;
};

class SbcSinkGraph : public SinkGraph<ZAVSbcFileSink> {
 public:
    explicit SbcSinkGraph(const EqualChunks& chunks)
        : SinkGraph(sbcFormatWithBits()), chunks_(chunks) {}

    void runChunk(std::size_t index) {
        const auto frames = chunks_[index];
        source().downstreams().receiveAudio(frames.data(), frames.size(),
                                            frames.size() / kSbcFrameLength, nullptr);
    }

 private:
    EqualChunks chunks_;
};

std::size_t unitsPerChunk(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

template <class Plain, class Node>
void compareOpusWriters(benchmark::State& state) {
    const auto chunks = chunksOf(slicePackets(), unitsPerChunk(state));
    compareWithPlain<Plain, Node>(state, {chunks.size(), unitsPerChunk(state), "record"}, chunks);
}

void OpusFileSinkNoiseFloor(benchmark::State& state) {
    compareOpusWriters<PlainOpusWriter, PlainOpusWriter>(state);
}

void OpusFileSink(benchmark::State& state) {
    compareOpusWriters<PlainOpusWriter, OpusSinkGraph>(state);
}

template <class Plain, class Node>
void compareOpusReaders(benchmark::State& state) {
    const test::TemporaryFolder folder;
    const std::filesystem::path path = folder / "file";
    {
        const auto source = makeNode<PeripheralSource>();
        source->setOutDataFormat(opusFormat(16000, 1));
        makeNode<ZAVOpusFileSink>(source, path);
        source->downstreams().onAudioStreamFlowStart();
        for (const PacketChunk& chunk : chunksOf(slicePackets(), 1)) {
            push(*source, chunk);
        }
        source->downstreams().onAudioStreamFlowEnd();
    }
    // No read reaches the end of the file.
    const Slice slice{kRecordsPerSlice / unitsPerChunk(state), unitsPerChunk(state), "record"};
    compareWithPlain<Plain, Node>(state, slice, path, unitsPerChunk(state));
}

void OpusFileSourceNoiseFloor(benchmark::State& state) {
    compareOpusReaders<PlainOpusReader, PlainOpusReader>(state);
}

void OpusFileSource(benchmark::State& state) {
    compareOpusReaders<PlainOpusReader, OpusSourceGraph>(state);
}

void SBCFileSink(benchmark::State& state) {
    const std::size_t chunkSize = unitsPerChunk(state) * kSbcFrameLength;
    const auto bytes = test::testBytes(kSbcChunksPerSlice * chunkSize);
    const EqualChunks chunks(bytes, chunkSize);
    compareWithPlain<PlainSbcWriter, SbcSinkGraph>(state, {chunks.size(), 1, "chunk"}, chunks);
}

BENCHMARK(OpusFileSinkNoiseFloor)->ArgName("packets")->Arg(1)->MinTime(2)->UseManualTime();
BENCHMARK(OpusFileSink)->ArgName("packets")->Arg(1)->Arg(8)->MinTime(2)->UseManualTime();
BENCHMARK(OpusFileSourceNoiseFloor)->ArgName("packets")->Arg(1)->MinTime(2)->UseManualTime();
BENCHMARK(OpusFileSource)->ArgName("packets")->Arg(1)->Arg(64)->MinTime(2)->UseManualTime();
BENCHMARK(SBCFileSink)
    ->ArgName("sbc_frames")
    ->Arg(1)
    ->Arg(12)
    ->Arg(62)
    ->MinTime(2)
    ->UseManualTime();

}  // namespace
}  // namespace zav::benchmarks
