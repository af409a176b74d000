#pragma once

#include <concepts>

/// The type codes of a value: containers last, objects highest.
inline constexpr char JSON_NULL = 0;
inline constexpr char JSON_STRING = 1;
inline constexpr char JSON_NUMBER = 2;
inline constexpr char JSON_BOOL = 3;
inline constexpr char JSON_ARRAY = 4;
inline constexpr char JSON_NODE = 5;  ///< an object

/// The integer types a number can be made from.
template <typename T>
concept JSONInteger = std::integral<T> && !std::same_as<T, bool>;
