#pragma once

#include <optional>

/// The test program is linked so that its calls of libopus pass by here.
namespace zav::test {

/// Results that libopus gives instead of its own, from now on and until they are empty again.
struct OpusRefusals {
    std::optional<int> create;  ///< the error of making an encoder or decoder
    std::optional<int> encode;
    std::optional<int> decode;
};
OpusRefusals& opusRefusals();

}  // namespace zav::test
