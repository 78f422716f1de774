#pragma once

#include <optional>

/// The test program is linked so that its calls of libopus and libsbc go through functions of ours.
namespace zav::test {

struct WrappedCodecs {
    /// Results that replace those of libopus while they are set.
    std::optional<int> opusCreate;  ///< the error of making an encoder or decoder
    std::optional<int> opusEncode;

    /// libsbc refuses the n-th frame that is encoded from now on, counted from 1. 0: none.
    int sbcEncodeToRefuse = 0;
    /// Numbers of codec states of libsbc that were made and finished so far.
    int sbcStatesMade = 0;
    int sbcStatesFinished = 0;
};
WrappedCodecs& wrappedCodecs();

}  // namespace zav::test
