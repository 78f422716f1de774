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

/// Base of the Opus codec nodes. An Opus stream has packets of 60 ms. A chunk contains one or more
/// packets. The stream's rate is 8000, 12000, 16000, 24000 or 48000 Hz, and the stream has one or
/// two channels. `opusFormat` makes its format record.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT OpusCoding : public CodecNode {
 public:
    class OpusError;

    /// Frames in 60 ms at the upstream's current rate: 480, 720, 960, 1440 or 2880 at the five
    /// rates. Computed in single precision and truncated. Fatal if the result is not finite or does
    /// not fit.
    std::int64_t frameCountPerPkt() const { return frameCountPerPkt(inDataFormat().mSampleRate); }
    /// Frames in 60 ms at `sampleRate`, in Hz.
    static std::int64_t frameCountPerPkt(double sampleRate);

 protected:
    /// Throws `AudioStreamError::unacceptableData` unless the upstream's format has this ID, one of
    /// the five rates and one or two channels. No other field of the format is checked.
    OpusCoding(const std::shared_ptr<AudioStreamOutputable>& upstream, std::uint32_t formatID);

    /// Channels of the codec. The upstream had this number when the node was made.
    std::uint32_t codecChannels() const noexcept { return codecChannels_; }

    /// Stops the process with `cause` if libopus could not make the codec.
    static void requireCreated(FatalCause cause, int error,
                               SourcePosition position = SourcePosition::current());
    /// `result` comes from `opus_encode` or `opus_decode`. Returns it if it is positive. Stops the
    /// process with `cause` if it is 0 or an error. Each error has its own text. The texts name
    /// encoding for a decoder, too.
    static int requireSuccess(FatalCause cause, int result,
                              SourcePosition position = SourcePosition::current());

 private:
    std::uint32_t codecChannels_ = 0;
};

/// For applications that want one error type for all failures of Opus. No node throws it.
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
