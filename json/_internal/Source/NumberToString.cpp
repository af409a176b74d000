#include "json/_internal/Source/NumberToString.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::string_view kOctalDigits = "01234567";
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSign(char c) { return c == '+' || c == '-'; }
bool isExponent(char c) { return c == 'e' || c == 'E'; }

bool consistsOf(std::string_view text, std::string_view allowed) {
  return text.find_first_not_of(allowed) == std::string_view::npos;
}

/// Digits with at most one "." and one exponent; the flags tell which of them was seen already.
bool isDecimalRest(std::string_view text, bool sawPoint, bool sawExponent) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isDigit(c)) {
      continue;
    }
    if (c == '.' && !sawPoint && !sawExponent) {
      sawPoint = true;
    } else if (isExponent(c) && !sawExponent) {
      sawExponent = true;
      if (i + 1 < text.size() && isSign(text[i + 1])) {
        ++i;
      }
      if (i + 1 == text.size() || !isDigit(text[i + 1])) {
        return false;
      }
    } else {
      return false;
    }
  }
  return true;
}

[[gnu::noinline]] bool isNumericAfterZero(std::string_view rest) {
  if (rest.empty()) {
    return true;
  }
  const char c = rest.front();
  rest.remove_prefix(1);
  if (c == '.') {
    return isDecimalRest(rest, true, false);
  }
  if (c >= '0' && c <= '7') {
    return consistsOf(rest, kOctalDigits);
  }
  if (c == 'x') {
    return consistsOf(rest, kHexDigits);  // "0x" alone passes, as the value 0
  }
  if (isExponent(c) && !rest.empty() && (isDigit(rest.front()) || isSign(rest.front()))) {
    return isDecimalRest(rest.substr(1), true, true);
  }
  return false;
}

}  // namespace

std::string NumberToString::_ftoa(long double value) {
  std::array<char, 64> shortText{};
  const int length = std::snprintf(shortText.data(), shortText.size(), "%Lf", value);
  if (length < 0) {
    return {};
  }
  const auto size = static_cast<std::size_t>(length);
  if (size < shortText.size()) {
    return {shortText.data(), size};
  }
  std::string text(size + 1, '\0');
  static_cast<void>(std::snprintf(text.data(), text.size(), "%Lf", value));
  text.pop_back();
  return text;
}

bool NumberToString::isNumericOther(std::string_view text) {
  if (text.empty()) {
    return false;
  }
  const char first = text.front();
  const std::string_view rest = text.substr(1);
  if (first == '0') {
    return isNumericAfterZero(rest);
  }
  if (isSign(first)) {
    return !rest.empty() && isDigit(rest.front()) && isDecimalRest(rest, false, false);
  }
  if (first == '.') {
    return isDecimalRest(rest, true, false);
  }
  return isDigit(first) && isDecimalRest(rest, false, false);
}

double NumberToString::_atofLong(std::string_view text) {
  const std::string terminated(text);
  return std::strtod(terminated.c_str(), nullptr);
}

long long NumberToString::nearestLimit(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  return value > 0 ? std::numeric_limits<long long>::max() : std::numeric_limits<long long>::min();
}

unsigned long long NumberToString::truncateUnsigned(double value) {
  constexpr double kLimit = 0x1p64;
  if (std::isnan(value) || value <= 0) {
    return 0;
  }
  if (value >= kLimit) {
    return std::numeric_limits<unsigned long long>::max();
  }
  return static_cast<unsigned long long>(value);
}
