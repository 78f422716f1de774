#include "Input.hpp"

#include <ZAVAudioStreaming/containers/SbcFileHeader.hpp>
#include <ZAVAudioStreaming/core/AudioFileError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <ZAVAudioStreaming/platform/FileHandle.hpp>
#include <ZAVAudioStreaming/sources/FileSource.hpp>
#include <ZAVAudioStreaming/sources/ZAVOpusFileSource.hpp>
#include <algorithm>
#include <system_error>
#include <utility>

#include "Container.hpp"
#include "Failure.hpp"
#include "Hint.hpp"
#include "Stream.hpp"

namespace zavtool {
namespace {

Failure sbcDamage(const std::filesystem::path& path, std::uint64_t frameCount,
                  std::uint64_t wholeSize) {
    return {path, "damaged after " + std::to_string(frameCount) +
                      " SBC frames; use a file that is whole" + headHint(path, wholeSize)};
}

/// A file that the audio file service reads.
class AudioFileInput : public Input {
 public:
    explicit AudioFileInput(const std::filesystem::path& path)
        : path_(path), file_(openAudioFile(path)), source_(open(path)) {}

    std::shared_ptr<zav::AudioStreamOutputable> node() const override { return source_; }
    std::string nodeName() const override { return "FileSource"; }
    double durationInSeconds() const override {
        return zav::audioFileProperty<double>(file_.get(),
                                              zav::kAudioFilePropertyEstimatedDuration);
    }
    std::optional<std::vector<std::byte>> magicCookie() const override {
        return zavtool::magicCookie(file_, path_);
    }
    std::uint32_t packetSizeUpperBound() const override { return source_->packetSizeUpperBound(); }
    bool describesPackets() const override { return format().mBytesPerPacket > 0; }
    bool pushPackets(std::int64_t count) override {
        try {
            return source_->readPackets(count) > 0;
        } catch (const zav::AudioFileError& error) {
            if (format().mFormatID == zav::kAudioFormatSbc &&
                error.status() == zav::kAudioFileInvalidFileError) {
                throw sbcDamage(path_, file_);
            }
            throw Failure(path_, readingProblem(error.status()));
        }
    }
    double progress() const override { return static_cast<double>(source_->progress()); }

 private:
    static std::shared_ptr<zav::FileSource> open(const std::filesystem::path& path) {
        try {
            return zav::makeNode<zav::FileSource>(path);
        } catch (const zav::AudioFileError& error) {
            throw Failure(path, readingProblem(error.status()));
        }
    }

    std::filesystem::path path_;
    OpenAudioFile file_;
    std::shared_ptr<zav::FileSource> source_;
};

class OpusContainerInput : public Input {
 public:
    OpusContainerInput(const std::filesystem::path& path, OpusContainer container)
        : path_(path), container_(std::move(container)) {
        if (container_.isDamaged) {
            throw Failure(path, "cut off in packet " + std::to_string(container_.packets.size()) +
                                    "; use a file that is whole" +
                                    headHint(path, container_.wholeSize));
        }
        source_ = zav::makeNode<zav::ZAVOpusFileSource>(path);
    }

    std::shared_ptr<zav::AudioStreamOutputable> node() const override { return source_; }
    std::string nodeName() const override { return "ZAVOpusFileSource"; }
    double durationInSeconds() const override {
        return secondsIn(container_.packets, container_.format.mSampleRate);
    }
    std::uint32_t packetSizeUpperBound() const override { return largestOf(container_.packets); }
    bool describesPackets() const override { return true; }
    bool pushPackets(std::int64_t count) override {
        try {
            source_->readPackets(count);
        } catch (const zav::AudioFileError&) {
            // The file has ended. The source has already ended the flow only if the last chunk was
            // short.
            if (isFlowing()) {
                source_->downstreams().onAudioStreamFlowEnd();
            }
            return false;
        } catch (const std::system_error& error) {
            throw Failure(path_, readingProblem(error));
        }
        packetsSoFar_ += static_cast<std::uint64_t>(count);
        return isFlowing();
    }
    double progress() const override {
        return std::min(1.0, static_cast<double>(packetsSoFar_) /
                                 static_cast<double>(container_.packets.size()));
    }

 private:
    /// The source itself ends the flow after a chunk with fewer packets than requested.
    bool isFlowing() const { return packetsSoFar_ <= container_.packets.size(); }

    std::filesystem::path path_;
    OpusContainer container_;
    std::shared_ptr<zav::ZAVOpusFileSource> source_;
    std::uint64_t packetsSoFar_ = 0;
};

/// The library's own source refuses these files. So a `PeripheralSource` pushes the frames, as in
/// an application that has received frames.
class SbcContainerInput : public Input {
 public:
    SbcContainerInput(const std::filesystem::path& path, const SbcContainer& container)
        : path_(path), container_(container), file_(zav::FileHandle::openForReading(path)) {
        if (container.firstFrame.empty() && container.audioSize > 0) {
            throw Failure(path, "no SBC frame after the header; use whole frames");
        }
        const std::uint64_t wholeSize = container.frameCount() * container.format.mBytesPerPacket;
        if (wholeSize < container.audioSize) {
            throw sbcDamage(path, container.frameCount(),
                            zav::SbcFileHeader::kByteCount + wholeSize);
        }
        source_->setOutDataFormat(container.format);
    }

    std::shared_ptr<zav::AudioStreamOutputable> node() const override { return source_; }
    std::string nodeName() const override { return "PeripheralSource"; }
    double durationInSeconds() const override {
        return static_cast<double>(container_.frameCount()) * container_.format.mFramesPerPacket /
               container_.format.mSampleRate;
    }
    std::uint32_t packetSizeUpperBound() const override {
        return std::max(1U, container_.format.mBytesPerPacket);
    }
    bool describesPackets() const override { return true; }
    bool pushPackets(std::int64_t count) override {
        if (framesSoFar_ == 0) {
            source_->downstreams().onAudioStreamFlowStart();
        }
        std::vector<std::byte> frames(static_cast<std::size_t>(count) * packetSizeUpperBound());
        frames.resize(
            file_.readAt(zav::SbcFileHeader::kByteCount + framesSoFar_ * packetSizeUpperBound(),
                         frames.data(), frames.size()));
        const std::uint64_t frameCount = frames.size() / packetSizeUpperBound();
        if (frameCount == 0) {
            source_->downstreams().onAudioStreamFlowEnd();
            return false;
        }
        framesSoFar_ += frameCount;
        source_->downstreams().receiveAudio(frames.data(), frames.size(), frameCount, nullptr);
        return true;
    }
    double progress() const override {
        return static_cast<double>(framesSoFar_) / static_cast<double>(container_.frameCount());
    }

 private:
    std::filesystem::path path_;
    SbcContainer container_;
    zav::FileHandle file_;
    std::shared_ptr<zav::PeripheralSource> source_ = zav::makeNode<zav::PeripheralSource>();
    std::uint64_t framesSoFar_ = 0;
};

}  // namespace

Failure sbcDamage(const std::filesystem::path& path, const OpenAudioFile& sbc) {
    const auto number = [&sbc](zav::AudioFilePropertyID property) {
        return zav::audioFileProperty<std::uint64_t>(sbc.get(), property);
    };
    return sbcDamage(path, number(zav::kAudioFilePropertyAudioDataPacketCount),
                     number(zav::kAudioFilePropertyAudioDataByteCount));
}

std::unique_ptr<Input> openInput(const std::filesystem::path& path) {
    if (auto container = examineOpusContainer(path)) {
        return std::make_unique<OpusContainerInput>(path, std::move(*container));
    }
    if (const auto container = examineSbcContainer(path)) {
        return std::make_unique<SbcContainerInput>(path, *container);
    }
    return std::make_unique<AudioFileInput>(path);
}

void pump(Input& input, std::uint32_t packetsPerUnit, ProgressLine& progress) {
    constexpr std::uint32_t kChunkSizeInBytes = 262144;
    std::int64_t packetsPerChunk = 1;
    if (input.describesPackets()) {
        const std::uint32_t unitSize =
            std::max(1U, input.packetSizeUpperBound()) * std::max(1U, packetsPerUnit);
        packetsPerChunk = std::int64_t{std::max(1U, kChunkSizeInBytes / unitSize)} * packetsPerUnit;
    }
    const double duration = input.durationInSeconds();
    while (input.pushPackets(packetsPerChunk)) {
        progress.update(input.progress(), input.progress() * duration);
    }
}

}  // namespace zavtool
