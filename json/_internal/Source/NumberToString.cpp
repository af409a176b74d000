#include "json/_internal/Source/NumberToString.h"

#include <cstdio>
#include <cstdlib>

#include "json/_internal/Source/CharacterClass.h"

namespace {

using json_detail::isDigit;

bool isSign(char c) { return c == '+' || c == '-'; }
bool isExponent(char c) { return c == 'e' || c == 'E'; }

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

bool isNumericAfterZero(std::string_view rest) {
  if (rest.empty()) {
    return true;
  }
  const char c = rest.front();
  rest.remove_prefix(1);
  if (c == '.') {
    return isDecimalRest(rest, true, false);
  }
  if (json_detail::isOctalDigit(c)) {
    return std::ranges::all_of(rest, json_detail::isOctalDigit);
  }
  if (c == 'x') {
    return std::ranges::all_of(rest, json_detail::isHexDigit);  // "0x" alone passes, as 0
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
  std::string text(size, '\0');
  static_cast<void>(std::snprintf(text.data(), size + 1, "%Lf", value));
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
