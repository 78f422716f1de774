#pragma once

#include <gtest/gtest.h>

namespace zav::test {

/// Expects that the call throws an error equal to `expected`.
template <class Error, class Call>
void expectThrown(const Error& expected, Call call) {
    try {
        call();
        ADD_FAILURE() << "nothing was thrown instead of " << expected.what();
    } catch (const Error& error) {
        EXPECT_TRUE(error == expected) << error.what() << " instead of " << expected.what();
    }
}

}  // namespace zav::test
