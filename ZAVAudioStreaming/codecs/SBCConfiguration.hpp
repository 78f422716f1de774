#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

struct sbc_struct;

namespace zav {

/// Parameters of an SBC stream, with the libsbc codec state made from them. The application shares
/// it with the one node that uses it: the state holds the filters' memory, so a second node or a
/// second stream needs a configuration of its own.
///
/// The state is made once, when `sbc`, `frameLen` or `codeSize` is first read (an `SBCEncoder` does
/// so when it is made); fields that are set later reach neither those values nor the encoding.
/// libsbc alone decides which combinations are good: `bitpool` is 2 to 16 x subbands for mono and
/// dual channel, to 32 x subbands (250 at most) for stereo and joint stereo.
///
/// Threads: one at a time, the making of the state is not guarded.
class ZAV_EXPORT SBCCoding::SBCConfiguration {
 public:
    SBCConfiguration() = default;
    ~SBCConfiguration();

    SBCConfiguration(const SBCConfiguration&) = delete;
    SBCConfiguration& operator=(const SBCConfiguration&) = delete;

    /// Reads the configuration back from an SBC stream's format. Two channels always give `stereo`,
    /// any count but two gives `mono`, and an unknown rate leaves 16000 Hz: the nodes' checks
    /// against the same format find what does not fit.
    static std::shared_ptr<SBCConfiguration> fromDataFormat(
        const AudioStreamBasicDescription& format);

    /// Reads the configuration from the header of the SBC frame at the start of `bytes`, including
    /// the channel mode that a stream format cannot tell. Null when no whole valid frame (sync
    /// byte, checksum) starts there. `endian` is `little`: frames do not carry it.
    static std::shared_ptr<SBCConfiguration> fromFrame(const void* bytes, std::size_t size);

    Frequency freq = Frequency::_16000;
    ChannelMode mode = ChannelMode::mono;
    Subband subband = Subband::_8;
    Block blocks = Block::_16;
    Endianess endian = Endianess::little;  ///< byte order of the PCM side
    AllocationMethod allocation = AllocationMethod::loudness;
    std::uint8_t bitpool = 32;

    /// The codec state, made at the first call; owned by this configuration.
    sbc_struct* sbc();
    /// Bytes of one encoded SBC frame.
    std::size_t frameLen();
    /// Bytes of 16-bit PCM that one SBC frame encodes, all channels.
    std::size_t codeSize();

    /// `mFormatFlags` of the stream that this configuration describes.
    std::uint32_t formatFlags() const;

 private:
    sbc_struct* sbc_ = nullptr;
};

/// Format of a stream of SBC frames with this configuration, as an `SBCEncoder` announces it. An
/// application gives it to the `PeripheralSource` in front of an `SBCDecoder`. A `ZAVSbcFileSink`
/// also demands an `mBitsPerChannel` of 16, which is 0 here.
///
/// It follows the fields of the moment and makes no codec state.
///
/// configuration  must have `sampleRate` as its rate, and be mono for one channel alone: nodes
/// refuse
///                a format that does not suit
/// sampleRate     frames per second
/// channels       1 or 2
ZAV_EXPORT AudioStreamBasicDescription sbcFormat(const SBCCoding::SBCConfiguration& configuration,
                                                 double sampleRate, std::uint32_t channels);

}  // namespace zav
