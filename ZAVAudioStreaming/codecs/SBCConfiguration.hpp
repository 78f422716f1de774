#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

struct sbc_struct;

namespace zav {

/// Parameters of an SBC stream, and the libsbc codec state that is made from them. The application
/// shares a configuration with only one node. The state holds the memory of the codec's filters, so
/// another node or another stream needs a configuration of its own.
///
/// The state is made once, at the first call of `sbc`, `frameLen` or `codeSize` (an `SBCEncoder`
/// calls them in its constructor). Fields that are set later do not change these values or the
/// encoding. The fields are not checked. libsbc accepts a `bitpool` of 2 to 16 x subbands for mono
/// and dual channel, and of 2 to 32 x subbands (250 at most) for stereo and joint stereo.
///
/// Threads: one at a time. No lock guards the creation of the state.
class ZAV_EXPORT SBCCoding::SBCConfiguration {
 public:
    SBCConfiguration() = default;
    ~SBCConfiguration();

    SBCConfiguration(const SBCConfiguration&) = delete;
    SBCConfiguration& operator=(const SBCConfiguration&) = delete;

    /// Reads the configuration back from the format of an SBC stream. Two channels give `stereo`,
    /// and any other number gives `mono`. A rate that SBC does not have gives 16000 Hz. A node
    /// whose upstream has this format then refuses the configuration.
    static std::shared_ptr<SBCConfiguration> fromDataFormat(
        const AudioStreamBasicDescription& format);

    /// Reads the configuration from the header of the SBC frame at the start of `bytes`. This
    /// includes the channel mode, which a stream format does not contain. Returns null unless
    /// `bytes` starts with a whole valid frame (sync byte, checksum). `endian` is `little`, because
    /// frames have no byte order.
    static std::shared_ptr<SBCConfiguration> fromFrame(const void* bytes, std::size_t size);

    Frequency freq = Frequency::_16000;
    ChannelMode mode = ChannelMode::mono;
    Subband subband = Subband::_8;
    Block blocks = Block::_16;
    Endianess endian = Endianess::little;  ///< byte order of the PCM side
    AllocationMethod allocation = AllocationMethod::loudness;
    std::uint8_t bitpool = 32;

    /// The codec state, made at the first call and owned by this configuration. Fatal if there is
    /// no memory for it.
    sbc_struct* sbc();
    /// Bytes of one encoded SBC frame.
    std::size_t frameLen();
    /// Bytes of 16-bit PCM in one SBC frame, for all channels together.
    std::size_t codeSize();

    /// `mFormatFlags` of the stream that this configuration describes.
    std::uint32_t formatFlags() const;

 private:
    sbc_struct* sbc_ = nullptr;
};

/// Format of a stream of SBC frames with this configuration, as an `SBCEncoder` reports it. An
/// application gives it to the `PeripheralSource` in front of an `SBCDecoder`. `mBitsPerChannel` is
/// 0. A `ZAVSbcFileSink` requires 16, so set it for that sink.
///
/// Reads the configuration's current fields and makes no codec state.
///
/// configuration  has the rate `sampleRate`. Its mode is mono for one channel and another mode
///                for two.
///                Nodes refuse other formats.
/// sampleRate     frames per second
/// channels       1 or 2
ZAV_EXPORT AudioStreamBasicDescription sbcFormat(const SBCCoding::SBCConfiguration& configuration,
                                                 double sampleRate, std::uint32_t channels);

}  // namespace zav
