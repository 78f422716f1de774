// Speech goes to an accessory as SBC and comes back:
//
//     FileSource -> SBCEncoder -> ToAccessory ~~> Accessory ~~> PeripheralSource -> SBCDecoder ->
//     FileSink
//
//     accessory_loop speech.wav heard.wav
//
// Shows the two ends where an application joins a graph: a sink of its own and a
// `PeripheralSource`. Measures bytes, signal-to-noise ratio and time.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <queue>
#include <span>
#include <vector>

namespace {

using Packet = std::vector<std::byte>;

/// Stands for the device at the other end. It keeps the packets and sends them back unchanged.
class Accessory {
 public:
    void receive(std::span<const std::byte> packet) {
        packets_.emplace(packet.begin(), packet.end());
        byteCount_ += packet.size();
        ++packetCount_;
    }

    bool hasPacket() const { return !packets_.empty(); }

    Packet takePacket() {
        Packet packet = std::move(packets_.front());
        packets_.pop();
        return packet;
    }

    std::size_t byteCount() const { return byteCount_; }
    std::size_t packetCount() const { return packetCount_; }

 private:
    std::queue<Packet> packets_;
    std::size_t byteCount_ = 0;
    std::size_t packetCount_ = 0;
};

/// The application's own end of the graph: sends every SBC frame to the accessory.
class ToAccessory : public zav::PeripheralSink {
 public:
    ToAccessory(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                Accessory& accessory)
        : PeripheralSink(key, upstream), accessory_(accessory) {}

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription*) override {
        const auto* const packets = static_cast<const std::byte*>(bytes);
        for (std::uint64_t i = 0; i < packetNum; ++i) {
            accessory_.receive({packets + i * (size / packetNum), size / packetNum});
        }
    }

 private:
    Accessory& accessory_;
};

/// Keeps 16-bit samples for the comparison.
class Samples : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t,
                      const zav::AudioStreamPacketDescription*) override {
        const std::size_t before = values.size();
        values.resize(before + size / sizeof(std::int16_t));
        std::memcpy(&values[before], bytes, size);
    }

    std::vector<std::int16_t> values;
};

std::vector<std::int16_t> samplesOf(const char* path) {
    const auto source = zav::makeNode<zav::FileSource>(path);
    const auto samples = zav::makeNode<Samples>(source);
    while (source->readPackets(65536) > 0) {
    }
    return samples->values;
}

/// Signal-to-noise ratio in dB. Compares each sample of `said` with the sample of `heard` that
/// comes `delay` samples later.
double signalToNoise(std::span<const std::int16_t> said, std::span<const std::int16_t> heard,
                     std::size_t delay) {
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 0; i < said.size() && i + delay < heard.size(); ++i) {
        const double sample = said[i];
        const double error = sample - heard[i + delay];
        signal += sample * sample;
        noise += error * error;
    }
    return 10 * std::log10(signal / std::max(noise, 1.0));
}

std::string describe(const zav::AudioStreamBasicDescription& pcm) {
    return std::to_string(pcm.mBitsPerChannel) + " bits, " +
           std::to_string(static_cast<int>(pcm.mSampleRate)) +
           " Hz, channels: " + std::to_string(pcm.mChannelsPerFrame);
}

void run(const char* saidPath, const char* heardPath) {
    Accessory accessory;
    const auto source = zav::makeNode<zav::FileSource>(saidPath);
    const auto configuration = std::make_shared<zav::SBCCoding::SBCConfiguration>();
    const auto encoder = zav::makeNode<zav::SBCEncoder>(source, configuration);
    zav::makeNode<ToAccessory>(encoder, accessory);

    const auto fromAccessory = zav::makeNode<zav::PeripheralSource>();
    fromAccessory->setOutDataFormat(encoder->outDataFormat());
    const auto decoder = zav::makeNode<zav::SBCDecoder>(fromAccessory);
    zav::makeNode<zav::FileSink>(decoder, heardPath, zav::kAudioFileWAVEType);

    const zav::AudioStreamBasicDescription pcm = source->outDataFormat();
    const zav::AudioStreamBasicDescription sbc = encoder->outDataFormat();
    std::printf("FileSource         %s: PCM, %s\n", saidPath, describe(pcm).c_str());
    std::printf("  SBCEncoder       bitpool %u: %u bytes for %u samples\n", configuration->bitpool,
                sbc.mBytesPerPacket, sbc.mFramesPerPacket);
    std::printf("    ToAccessory    a PeripheralSink of the application  ~~> the accessory\n");
    std::printf("PeripheralSource   what comes back                      <~~ the accessory\n");
    std::printf("  SBCDecoder       PCM, %s\n", describe(decoder->outDataFormat()).c_str());
    std::printf("    FileSink       %s\n\n", heardPath);

    // Whole SBC frames (about 100 ms), so that the encoder never keeps bytes for the next chunk.
    const std::int64_t packetsPerRead = 12 * sbc.mFramesPerPacket;
    const auto start = std::chrono::steady_clock::now();
    fromAccessory->downstreams().onAudioStreamFlowStart();
    while (source->readPackets(packetsPerRead) > 0) {
        while (accessory.hasPacket()) {
            const Packet packet = accessory.takePacket();
            fromAccessory->downstreams().receiveAudio(packet.data(), packet.size(), 1, nullptr);
        }
    }
    fromAccessory->downstreams().onAudioStreamFlowEnd();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;

    const auto said = samplesOf(saidPath);
    const auto heard = samplesOf(heardPath);
    const double seconds = static_cast<double>(said.size()) / pcm.mSampleRate;
    const auto saidBytes = static_cast<double>(said.size() * sizeof(std::int16_t));
    const auto sentBytes = static_cast<double>(accessory.byteCount());
    std::printf("packets            %zu SBC frames went to the accessory and came back\n",
                accessory.packetCount());
    std::printf("bytes              %.0f of PCM, %zu of SBC\n", saidBytes, accessory.byteCount());
    std::printf("compression        %.2f to 1, %.1f kbit/s\n", saidBytes / sentBytes,
                sentBytes * 8 / seconds / 1000);

    // The filter banks of SBC delay the audio by 9 x subbands + 1 samples.
    const std::size_t delay = configuration->subband == zav::SBCCoding::Subband::_8 ? 73 : 37;
    std::printf("signal to noise    %.1f dB, compared %.1f ms later, the delay of the codec\n",
                signalToNoise(said, heard, delay),
                static_cast<double>(delay) * 1000 / pcm.mSampleRate);
    std::printf("time               %.1f ms for %.2f s of speech, %.0f times real time\n",
                elapsed.count() * 1000, seconds, seconds / elapsed.count());
    std::printf("heard              %s\n", heardPath);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: accessory_loop SAID.wav HEARD.wav\n");
        return 2;
    }
    try {
        run(argv[1], argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
}
