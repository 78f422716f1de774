#include "tests/support/WrappedOpus.hpp"

#include <opus.h>

zav::test::OpusRefusals& zav::test::opusRefusals() {
    static OpusRefusals refusals;
    return refusals;
}

extern "C" {

OpusEncoder* __real_opus_encoder_create(opus_int32 rate, int channels, int application, int* error);
OpusDecoder* __real_opus_decoder_create(opus_int32 rate, int channels, int* error);
opus_int32 __real_opus_encode(OpusEncoder* encoder, const opus_int16* pcm, int frameSize,
                              unsigned char* packet, opus_int32 room);
int __real_opus_decode(OpusDecoder* decoder, const unsigned char* packet, opus_int32 size,
                       opus_int16* pcm, int frameSize, int fec);

OpusEncoder* __wrap_opus_encoder_create(opus_int32 rate, int channels, int application,
                                        int* error) {
    if (const auto refusal = zav::test::opusRefusals().create) {
        *error = *refusal;
        return nullptr;
    }
    return __real_opus_encoder_create(rate, channels, application, error);
}

OpusDecoder* __wrap_opus_decoder_create(opus_int32 rate, int channels, int* error) {
    if (const auto refusal = zav::test::opusRefusals().create) {
        *error = *refusal;
        return nullptr;
    }
    return __real_opus_decoder_create(rate, channels, error);
}

opus_int32 __wrap_opus_encode(OpusEncoder* encoder, const opus_int16* pcm, int frameSize,
                              unsigned char* packet, opus_int32 room) {
    const auto refusal = zav::test::opusRefusals().encode;
    return refusal ? *refusal : __real_opus_encode(encoder, pcm, frameSize, packet, room);
}

int __wrap_opus_decode(OpusDecoder* decoder, const unsigned char* packet, opus_int32 size,
                       opus_int16* pcm, int frameSize, int fec) {
    const auto refusal = zav::test::opusRefusals().decode;
    return refusal ? *refusal : __real_opus_decode(decoder, packet, size, pcm, frameSize, fec);
}
}
