#pragma once

#include <cmath>
#include <concepts>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/core/FatalError.hpp"

/// Size arithmetic of the nodes. A result that does not fit its type is a fatal stop, because a
/// wrapped size would lead to a write outside a buffer. The stop names the caller's position.
namespace zav::detail {

/// Converts `value` to `To`. Fatal if `value` is outside the range of `To`.
template <std::integral To, std::integral From>
constexpr To checkedCast(From value, SourcePosition position = SourcePosition::current()) {
    if (!std::in_range<To>(value)) {
        fatalError(FatalCause::arithmetic, "Not enough bits to represent the passed value",
                   position);
    }
    return static_cast<To>(value);
}

/// Drops the fraction of `value` and converts it to `To`. Fatal if `value` is not finite or outside
/// the range of `To`.
template <std::integral To, std::floating_point From>
To checkedTruncate(From value, SourcePosition position = SourcePosition::current()) {
    const From whole = std::trunc(value);
    const From end = std::ldexp(From{1}, std::numeric_limits<To>::digits);
    if (!(whole >= static_cast<From>(std::numeric_limits<To>::min()) && whole < end)) {
        fatalError(FatalCause::arithmetic, "Not enough bits to represent the passed value",
                   position);
    }
    return static_cast<To>(whole);
}

/// Returns left x right. Fatal if the product overflows.
template <std::integral T>
constexpr T checkedMultiply(T left, T right, SourcePosition position = SourcePosition::current()) {
    T product{};
    if (__builtin_mul_overflow(left, right, &product)) {
        fatalError(FatalCause::arithmetic, "Arithmetic overflow", position);
    }
    return product;
}

/// Returns dividend / divisor without the remainder. Fatal if the divisor is zero.
template <std::integral T>
constexpr T checkedDivide(T dividend, T divisor,
                          SourcePosition position = SourcePosition::current()) {
    if (divisor == 0) {
        fatalError(FatalCause::arithmetic, "Division by zero", position);
    }
    return static_cast<T>(dividend / divisor);
}

}  // namespace zav::detail
