#pragma once

/// The test program is linked so that its calls of libsbc pass by here.
namespace zav::test {

/// Lets libsbc refuse the n-th frame to be encoded from now on, counted from 1.
void refuseSbcEncode(int call);

/// How many codec states were made and finished so far.
struct SbcStateCounts {
    int made = 0;
    int finished = 0;
};
SbcStateCounts sbcStateCounts();

}  // namespace zav::test
