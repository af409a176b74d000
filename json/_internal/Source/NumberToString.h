#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "json/_internal/Source/CharacterClass.h"

/// Numbers as text, and text as numbers, in the "C" numeric locale, which the process must keep.
class NumberToString {
 public:
  /// Decimal digits of a signed integer, "-" in front when negative. Also right
  /// for the most negative value of the type.
  template <std::signed_integral T>
  static std::string _itoa(T value) {
    return std::string(Digits(value).view());
  }

  /// Decimal digits of an unsigned integer.
  template <std::unsigned_integral T>
  static std::string _uitoa(T value) {
    return std::string(Digits(value).view());
  }

  /// A floating-point value with six decimals ("%Lf").
  static std::string _ftoa(long double value);

  /// Whether a bare value is a number. Wider than the standard on purpose: a
  /// leading "+", octal- and hexadecimal-looking texts, ".5", "1.", "." and "0e+" pass.
  static bool isNumeric(std::string_view text) {
    return isExactInteger(text) || isNumericOther(text);
  }

  /// The value of the number that starts the text, as atof() reads it (leading
  /// white space, hex, "inf" included); 0 when none does.
  static double _atof(std::string_view text) {
    if (!isExactInteger(text)) {
      return _atofLong(text);  // with a copy, for the C library
    }
    long long value = 0;
    for (const char digit : text) {
      value = value * 10 + (digit - '0');
    }
    return static_cast<double>(value);
  }

  /// Truncation toward zero. What the type cannot hold becomes the nearest limit, NaN becomes 0.
  template <std::integral T>
  static T truncate(double value) {
    using Limits = std::numeric_limits<T>;
    constexpr T kHalf = Limits::max() / 2 + 1;  // of one more than the largest, which T cannot hold
    if (value / 2 >= static_cast<double>(kHalf)) {
      return Limits::max();
    }
    if (value < static_cast<double>(Limits::min())) {
      return Limits::min();
    }
    return std::isnan(value) ? 0 : static_cast<T>(value);
  }

  /// The digits of one integer, in a buffer of their own.
  class Digits {
   public:
    template <std::integral T>
    explicit Digits(T value) : start(kLongest) {
      // Negating as unsigned is right for the most negative value too.
      const bool negative = std::is_signed_v<T> && value < T{0};
      const auto widened = static_cast<unsigned long long>(+value);
      unsigned long long rest = negative ? 0 - widened : widened;
      do {
        buffer[--start] = static_cast<char>('0' + rest % 10);
        rest /= 10;
      } while (rest != 0);
      if (negative) {
        buffer[--start] = '-';
      }
    }
    [[nodiscard]] std::string_view view() const {
      return {buffer.data() + start, buffer.size() - start};
    }

   private:
    static constexpr std::size_t kLongest =
        std::numeric_limits<unsigned long long>::digits10 + 2;  // and a sign
    std::array<char, kLongest> buffer{};
    std::size_t start;
  };

 private:
  /// The usual number: digits, the first a zero only when it is alone, so few
  /// that a double is exact.
  static bool isExactInteger(std::string_view text) {
    constexpr std::size_t kExactDigits = 15;
    return !text.empty() && text.size() <= kExactDigits &&
           (text.front() != '0' || text.size() == 1) &&
           std::ranges::all_of(text, json_detail::isDigit);
  }
  static bool isNumericOther(std::string_view text);
  static double _atofLong(std::string_view text);
};
