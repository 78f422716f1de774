// Encodes a WAV file as the library's encoder node does, with libopus and stdio alone.
// compare-tools compares `zav encode` with it.
//
//     zav_plain_opus_encoder INPUT OUTPUT
//
// INPUT is 16-bit PCM as sox writes it, with the samples behind a header of 44 bytes. OUTPUT gets
// 48 zero bytes in place of a container's header, then the records of an Opus container: packets of
// 60 ms. Frames that do not fill the last packet are left out.

#include <opus.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr std::size_t kMaximumPacketSize = 3828;

void require(bool isGood, const char* what) {
    if (!isGood) {
        std::fprintf(stderr, "zav_plain_opus_encoder: %s\n", what);
        std::exit(1);
    }
}

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
    void operator()(OpusEncoder* encoder) const { opus_encoder_destroy(encoder); }
};

struct Format {
    std::uint16_t channels = 0;
    std::uint32_t rate = 0;
};

Format readHeader(std::FILE* input) {
    constexpr std::size_t kChannelsOffset = 22;
    constexpr std::size_t kRateOffset = 24;
    constexpr std::size_t kDataOffset = 36;
    std::array<char, 44> header{};
    require(std::fread(header.data(), header.size(), 1, input) == 1 &&
                std::memcmp(&header[kDataOffset], "data", 4) == 0,
            "not a WAV file with a header of 44 bytes");
    Format format;
    std::memcpy(&format.channels, &header[kChannelsOffset], sizeof format.channels);
    std::memcpy(&format.rate, &header[kRateOffset], sizeof format.rate);
    return format;
}

void encode(std::FILE* input, std::FILE* output) {
    const Format format = readHeader(input);
    const std::unique_ptr<OpusEncoder, Close> encoder(opus_encoder_create(
        static_cast<opus_int32>(format.rate), format.channels, OPUS_APPLICATION_AUDIO, nullptr));
    require(encoder != nullptr, "a rate or channels that libopus does not take");

    constexpr std::array<char, 48> kHeader{};
    require(std::fwrite(kHeader.data(), kHeader.size(), 1, output) == 1, "cannot write");
    const std::uint32_t framesPerPacket = format.rate * 60 / 1000;
    std::vector<opus_int16> pcm(std::size_t{framesPerPacket} * format.channels);
    std::array<unsigned char, kMaximumPacketSize> packet;
    while (std::fread(pcm.data(), sizeof(opus_int16), pcm.size(), input) == pcm.size()) {
        const opus_int32 size =
            opus_encode(encoder.get(), pcm.data(), static_cast<int>(framesPerPacket), packet.data(),
                        static_cast<opus_int32>(packet.size()));
        require(size > 0, "cannot encode");
        std::array<unsigned char, 8> record;
        record.fill(0xFF);
        std::memcpy(record.data(), &size, sizeof size);
        require(std::fwrite(record.data(), record.size(), 1, output) == 1 &&
                    std::fwrite(packet.data(), static_cast<std::size_t>(size), 1, output) == 1,
                "cannot write");
    }
    require(std::fflush(output) == 0, "cannot write");
}

}  // namespace

int main(int argumentCount, char** arguments) {
    require(argumentCount == 3, "INPUT OUTPUT");
    const std::unique_ptr<std::FILE, Close> input(std::fopen(arguments[1], "rb"));
    require(input != nullptr, "cannot open the input");
    const std::unique_ptr<std::FILE, Close> output(std::fopen(arguments[2], "wb"));
    require(output != nullptr, "cannot open the output");
    encode(input.get(), output.get());
}
