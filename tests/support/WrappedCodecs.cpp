#include "tests/support/WrappedCodecs.hpp"

#include <opus.h>
#include <sbc/sbc.h>

#include <cerrno>

using zav::test::wrappedCodecs;

zav::test::WrappedCodecs& zav::test::wrappedCodecs() {
    static WrappedCodecs codecs;
    return codecs;
}

extern "C" {

OpusEncoder* __real_opus_encoder_create(opus_int32 rate, int channels, int application, int* error);
OpusDecoder* __real_opus_decoder_create(opus_int32 rate, int channels, int* error);
opus_int32 __real_opus_encode(OpusEncoder* encoder, const opus_int16* pcm, int frameSize,
                              unsigned char* packet, opus_int32 room);
int __real_sbc_init(sbc_t* sbc, unsigned long flags);
void __real_sbc_finish(sbc_t* sbc);
ssize_t __real_sbc_encode(sbc_t* sbc, const void* input, size_t inputSize, void* output,
                          size_t outputSize, ssize_t* written);

OpusEncoder* __wrap_opus_encoder_create(opus_int32 rate, int channels, int application,
                                        int* error) {
    if (const auto refusal = wrappedCodecs().opusCreate) {
        *error = *refusal;
        return nullptr;
    }
    return __real_opus_encoder_create(rate, channels, application, error);
}

OpusDecoder* __wrap_opus_decoder_create(opus_int32 rate, int channels, int* error) {
    if (const auto refusal = wrappedCodecs().opusCreate) {
        *error = *refusal;
        return nullptr;
    }
    return __real_opus_decoder_create(rate, channels, error);
}

opus_int32 __wrap_opus_encode(OpusEncoder* encoder, const opus_int16* pcm, int frameSize,
                              unsigned char* packet, opus_int32 room) {
    const auto refusal = wrappedCodecs().opusEncode;
    return refusal ? *refusal : __real_opus_encode(encoder, pcm, frameSize, packet, room);
}

int __wrap_sbc_init(sbc_t* sbc, unsigned long flags) {
    ++wrappedCodecs().sbcStatesMade;
    return __real_sbc_init(sbc, flags);
}

void __wrap_sbc_finish(sbc_t* sbc) {
    ++wrappedCodecs().sbcStatesFinished;
    __real_sbc_finish(sbc);
}

ssize_t __wrap_sbc_encode(sbc_t* sbc, const void* input, size_t inputSize, void* output,
                          size_t outputSize, ssize_t* written) {
    int& callsUntilRefusal = wrappedCodecs().sbcEncodeToRefuse;
    if (callsUntilRefusal > 0 && --callsUntilRefusal == 0) {
        return -EIO;
    }
    return __real_sbc_encode(sbc, input, inputSize, output, outputSize, written);
}
}
