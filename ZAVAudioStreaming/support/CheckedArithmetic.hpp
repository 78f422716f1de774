#pragma once

#include <cmath>
#include <concepts>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/core/FatalError.hpp"

/// Size arithmetic of the nodes: a result that its type cannot hold ends the process, because going
/// on with a wrapped size would write outside a buffer.
namespace zav::detail {

/// `value` as a `To`; a value outside its range is a fatal stop at the caller's position.
template <std::integral To, std::integral From>
constexpr To checkedCast(From value, SourcePosition position = SourcePosition::current()) {
    if (!std::in_range<To>(value)) {
        fatalError(FatalCause::arithmetic, "Not enough bits to represent the passed value",
                   position);
    }
    return static_cast<To>(value);
}

/// `value` without its fraction as a `To`; one that is not finite or outside its range is a fatal
/// stop at the caller's position.
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

/// left x right; an overflow is a fatal stop at the caller's position.
template <std::integral T>
constexpr T checkedMultiply(T left, T right, SourcePosition position = SourcePosition::current()) {
    T product{};
    if (__builtin_mul_overflow(left, right, &product)) {
        fatalError(FatalCause::arithmetic, "Arithmetic overflow", position);
    }
    return product;
}

/// dividend / divisor, whole; a zero divisor is a fatal stop at the caller's position.
template <std::integral T>
constexpr T checkedDivide(T dividend, T divisor,
                          SourcePosition position = SourcePosition::current()) {
    if (divisor == 0) {
        fatalError(FatalCause::arithmetic, "Division by zero", position);
    }
    return static_cast<T>(dividend / divisor);
}

}  // namespace zav::detail
