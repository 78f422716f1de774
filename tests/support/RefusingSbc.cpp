#include "tests/support/RefusingSbc.hpp"

#include <sbc/sbc.h>

#include <cerrno>

namespace {

int callsUntilRefusal = 0;

}  // namespace

void zav::test::refuseSbcEncode(int call) {
    callsUntilRefusal = call;
}

extern "C" {

ssize_t __real_sbc_encode(sbc_t* sbc, const void* input, size_t inputSize, void* output,
                          size_t outputSize, ssize_t* written);

ssize_t __wrap_sbc_encode(sbc_t* sbc, const void* input, size_t inputSize, void* output,
                          size_t outputSize, ssize_t* written) {
    if (callsUntilRefusal > 0 && --callsUntilRefusal == 0) {
        return -EIO;
    }
    return __real_sbc_encode(sbc, input, inputSize, output, outputSize, written);
}
}
