#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "tests/support/Formats.hpp"

namespace zav::test {

/// One encoding, for any rate and number of channels.
struct Encoding {
    std::string name;
    std::uint32_t formatID;
    std::uint32_t flags;
    std::uint32_t bits;

    AudioStreamBasicDescription format(double rate, std::uint32_t channels) const {
        AudioStreamBasicDescription format = pcmFormat(rate, channels, bits, flags);
        format.mFormatID = formatID;
        if (formatID != kAudioFormatLinearPCM) {
            format.mFormatFlags = 0;
        }
        return format;
    }
};

inline std::vector<Encoding> allEncodings() {
    constexpr std::uint32_t kFloat = kAudioFormatFlagIsFloat;
    constexpr std::uint32_t kBig = kAudioFormatFlagIsBigEndian;
    constexpr std::uint32_t kSigned = kAudioFormatFlagIsSignedInteger;
    return {{"u8", kAudioFormatLinearPCM, 0, 8},
            {"s8", kAudioFormatLinearPCM, kSigned, 8},
            {"s16le", kAudioFormatLinearPCM, kSigned, 16},
            {"s24le", kAudioFormatLinearPCM, kSigned, 24},
            {"s32le", kAudioFormatLinearPCM, kSigned, 32},
            {"s16be", kAudioFormatLinearPCM, kSigned | kBig, 16},
            {"s24be", kAudioFormatLinearPCM, kSigned | kBig, 24},
            {"s32be", kAudioFormatLinearPCM, kSigned | kBig, 32},
            {"f32le", kAudioFormatLinearPCM, kFloat, 32},
            {"f64le", kAudioFormatLinearPCM, kFloat, 64},
            {"f32be", kAudioFormatLinearPCM, kFloat | kBig, 32},
            {"f64be", kAudioFormatLinearPCM, kFloat | kBig, 64},
            {"alaw", kAudioFormatALaw, 0, 8},
            {"ulaw", kAudioFormatULaw, 0, 8}};
}

/// Formats that no file and no queue takes, each with one error.
inline std::vector<AudioStreamBasicDescription> wrongPcmFormats() {
    const std::vector<void (*)(AudioStreamBasicDescription&)> changes = {
        [](auto& format) { format.mSampleRate = 44100.5; },
        [](auto& format) { format.mSampleRate = -1; },
        [](auto& format) { format.mSampleRate = 1e18; },
        [](auto& format) { format.mSampleRate = std::nan(""); },
        [](auto& format) { format.mChannelsPerFrame = 0; },
        [](auto& format) { format.mChannelsPerFrame = 0xFFFFFFFF; },
        [](auto& format) { format.mBytesPerFrame = 5; },
        [](auto& format) { format.mBytesPerFrame = 8; },
        [](auto& format) { format.mBytesPerPacket = 8; },
        [](auto& format) { format.mFramesPerPacket = 2; },
        [](auto& format) { format.mBitsPerChannel = 20; },
        [](auto& format) { format.mFormatID = fourCharCode("what"); },
    };
    std::vector<AudioStreamBasicDescription> formats(changes.size(), pcmFormat(44100, 2));
    for (std::size_t i = 0; i < changes.size(); ++i) {
        changes[i](formats[i]);
    }
    return formats;
}

/// A type of file and the encodings that it takes. It refuses all others.
struct PcmFileCase {
    AudioFileTypeID type;
    std::vector<std::string> encodings;

    bool takes(const Encoding& encoding) const {
        return std::find(encodings.begin(), encodings.end(), encoding.name) != encodings.end();
    }
};

inline std::vector<PcmFileCase> pcmFileCases() {
    const std::vector<std::string> little = {"u8",    "s16le", "s24le", "s32le",
                                             "f32le", "f64le", "alaw",  "ulaw"};
    return {
        {kAudioFileWAVEType, little},
        {kAudioFileRF64Type, little},
        {kAudioFileWave64Type, little},
        {kAudioFileAIFFType, {"s8", "s16be", "s24be", "s32be"}},
        {kAudioFileAIFCType,
         {"u8", "s16be", "s24be", "s32be", "s16le", "f32be", "f64be", "alaw", "ulaw"}},
        {kAudioFileCAFType,
         {"s8", "s16be", "s24be", "s32be", "s16le", "s24le", "s32le", "f32be", "f64be", "f32le",
          "f64le", "alaw", "ulaw"}},
        {kAudioFileNextType, {"s8", "s16be", "s24be", "s32be", "f32be", "f64be", "alaw", "ulaw"}},
    };
}

/// Runs `check` for every type with each of its encodings.
template <class Check>
void forEachKind(Check check) {
    for (const PcmFileCase& fileCase : pcmFileCases()) {
        for (const Encoding& encoding : allEncodings()) {
            if (fileCase.takes(encoding)) {
                SCOPED_TRACE(fourCharText(fileCase.type) + " " + encoding.name);
                check(fileCase, encoding);
            }
        }
    }
}

}  // namespace zav::test
