// Reads all packets of an audio file through a FileSource, one by one, and prints their number.
// compare-tools compares it with "ffmpeg -c copy".
//
//     zav_read_packets FILE

#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/PeripheralSink.hpp>
#include <ZAVAudioStreaming/sources/FileSource.hpp>
#include <cstdio>
#include <exception>

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fputs("usage: zav_read_packets FILE\n", stderr);
        return 2;
    }
    try {
        const auto source = zav::makeNode<zav::FileSource>(arguments[1]);
        zav::makeNode<zav::PeripheralSink>(source);
        long long packetCount = 0;
        while (source->readPackets(1) > 0) {
            ++packetCount;
        }
        std::printf("%lld\n", packetCount);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zav_read_packets: %s: %s\n", arguments[1], error.what());
        return 1;
    }
    return 0;
}
