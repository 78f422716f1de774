#pragma once

namespace zav::test {

/// Lets libsbc refuse the n-th frame from now on, counted from 1. The test program is linked so
/// that every `sbc_encode` passes by here.
void refuseSbcEncode(int call);

}  // namespace zav::test
