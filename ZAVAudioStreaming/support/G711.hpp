#pragma once

/// Decodes samples of ITU-T G.711 (one sign bit, three exponent bits, four mantissa bits) to 16
/// bits.
namespace zav::detail {

constexpr int fromALaw(int byte) {
    const int bits = byte ^ 0x55;
    const int exponent = bits >> 4 & 7;
    const int mantissa = (bits & 15) * 16 + 8;
    const int size = exponent == 0 ? mantissa : (mantissa + 256) << (exponent - 1);
    return (bits & 128) != 0 ? size : -size;
}

constexpr int fromMuLaw(int byte) {
    const int bits = byte ^ 255;
    const int size = (((bits & 15) * 8 + 132) << (bits >> 4 & 7)) - 132;
    return (bits & 128) != 0 ? -size : size;
}

}  // namespace zav::detail
