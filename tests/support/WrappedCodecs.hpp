#pragma once

#include <optional>

/// The test program is linked so that its calls of libopus and libsbc pass by here.
namespace zav::test {

struct WrappedCodecs {
    /// Results that libopus gives instead of its own while they are set.
    std::optional<int> opusCreate;  ///< the error of making an encoder or decoder
    std::optional<int> opusEncode;

    /// libsbc refuses the n-th frame to be encoded from now on, counted from 1.
    int sbcEncodeToRefuse = 0;
    /// How many of libsbc's codec states were made and finished so far.
    int sbcStatesMade = 0;
    int sbcStatesFinished = 0;
};
WrappedCodecs& wrappedCodecs();

}  // namespace zav::test
