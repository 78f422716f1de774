#pragma once

#include <concepts>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/core/FatalError.hpp"

/// Size arithmetic of the nodes: a result that its type cannot hold ends the process, because going
/// on with a wrapped size would write outside a buffer.
namespace zav {

/// `value` as a `To`; a value outside its range is a fatal stop at the caller's position.
template <std::integral To, std::integral From>
constexpr To checkedCast(From value, SourcePosition position = SourcePosition::current()) {
    if (!std::in_range<To>(value)) {
        fatalError("Not enough bits to represent the passed value", position);
    }
    return static_cast<To>(value);
}

/// left x right; an overflow is a fatal stop at the caller's position.
template <std::integral T>
constexpr T checkedMultiply(T left, T right, SourcePosition position = SourcePosition::current()) {
    T product{};
    if (__builtin_mul_overflow(left, right, &product)) {
        fatalError("Arithmetic overflow", position);
    }
    return product;
}

/// dividend / divisor, whole; a zero divisor is a fatal stop at the caller's position.
template <std::integral T>
constexpr T checkedDivide(T dividend, T divisor,
                          SourcePosition position = SourcePosition::current()) {
    if (divisor == 0) {
        fatalError("Division by zero", position);
    }
    return static_cast<T>(dividend / divisor);
}

}  // namespace zav
