#include "tests/support/WrappedSbc.hpp"

#include <sbc/sbc.h>

#include <cerrno>

namespace {

int callsUntilRefusal = 0;
zav::test::SbcStateCounts stateCounts;

}  // namespace

void zav::test::refuseSbcEncode(int call) {
    callsUntilRefusal = call;
}

zav::test::SbcStateCounts zav::test::sbcStateCounts() {
    return stateCounts;
}

extern "C" {

int __real_sbc_init(sbc_t* sbc, unsigned long flags);
void __real_sbc_finish(sbc_t* sbc);

int __wrap_sbc_init(sbc_t* sbc, unsigned long flags) {
    ++stateCounts.made;
    return __real_sbc_init(sbc, flags);
}

void __wrap_sbc_finish(sbc_t* sbc) {
    ++stateCounts.finished;
    __real_sbc_finish(sbc);
}

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
