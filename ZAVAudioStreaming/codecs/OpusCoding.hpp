#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>

#include "ZAVAudioStreaming/codecs/CodecNode.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"

namespace zav {

/// Base of the Opus codec nodes. An Opus stream here is made of packets of 60 ms, one or more in a
/// chunk, at 8000, 12000, 16000, 24000 or 48000 Hz with one or two channels. Its format record says
/// just that: `kAudioFormatOpus`, the rate, the channels, all else 0, also `mFramesPerPacket`.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT OpusCoding : public CodecNode {
 public:
    class OpusError;

    /// Frames in 60 ms at the upstream's rate of this moment: 480, 720, 960, 1440 or 2880 at the
    /// five rates. The product is formed in single precision and truncated. One that is not finite
    /// or does not fit is a fatal stop.
    std::int64_t frameCountPerPkt() const { return frameCountPerPkt(inDataFormat().mSampleRate); }
    /// The same at any rate, in Hz.
    static std::int64_t frameCountPerPkt(double sampleRate);

 protected:
    /// Throws `AudioStreamError::unacceptableData` unless the upstream's format has this ID, one of
    /// the five rates and one or two channels. Nothing else of the format is looked at.
    OpusCoding(const std::shared_ptr<AudioStreamOutputable>& upstream, std::uint32_t formatID);

    /// Channels that the codec is made for: the upstream's at construction.
    std::uint32_t codecChannels() const noexcept { return codecChannels_; }

    /// A fatal stop for `cause` unless libopus made the codec.
    static void requireCreated(FatalCause cause, int error,
                               SourcePosition position = SourcePosition::current());
    /// Returns `result`, of `opus_encode` or `opus_decode`. A fatal stop for `cause` if it is 0 or
    /// an error. Each error has its own text; a decoder's texts name encoding, too.
    static int requireSuccess(FatalCause cause, int result,
                              SourcePosition position = SourcePosition::current());

 private:
    std::uint32_t codecChannels_ = 0;
};

/// Declared for applications that want one type for all failures of Opus; no node throws it.
class ZAV_EXPORT OpusCoding::OpusError : public std::runtime_error {
 public:
    enum class Code { opus };

    static OpusError opus();

    Code code() const noexcept { return code_; }

    friend bool operator==(const OpusError& left, const OpusError& right) noexcept {
        return left.code_ == right.code_;
    }

 private:
    OpusError(Code code, const char* name) : std::runtime_error(name), code_(code) {}

    Code code_;
};

}  // namespace zav

template <>
struct std::hash<zav::OpusCoding::OpusError> {
    std::size_t operator()(const zav::OpusCoding::OpusError& error) const noexcept {
        return std::hash<zav::OpusCoding::OpusError::Code>{}(error.code());
    }
};
