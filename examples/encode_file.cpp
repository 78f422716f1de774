// Encodes a 16 kHz mono WAV file to SBC: the smallest graph.
//
//     encode_file speech.wav speech.sbc

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: encode_file INPUT.wav OUTPUT.sbc\n";
        return 2;
    }
    try {
        auto configuration = std::make_shared<zav::SBCCoding::SBCConfiguration>();
        configuration->bitpool = 40;
        auto source = zav::makeNode<zav::FileSource>(argv[1]);
        auto encoder = zav::makeNode<zav::SBCEncoder>(source, configuration);
        zav::makeNode<zav::FileSink>(encoder, argv[2], zav::kAudioFileSBCType);
        while (source->readPackets(128 * 100) > 0) {  // 100 SBC frames of 128 samples each
        }
    } catch (const std::exception& error) {
        std::cerr << argv[1] << ": " << error.what() << '\n';
        return 1;
    }
}
