#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace json_detail {

/// What a byte outside strings means to the compacting pass.
enum class CharacterClass : unsigned char {
  kIllegal,  // ends the text: control bytes, 0x7F and everything above
  kPlain,
  kWhiteSpace,
  kQuote,
  kSlash,
  kHash,
  kBackslash,
};

inline constexpr std::array<CharacterClass, 256> kCharacterClasses = [] {
  std::array<CharacterClass, 256> classes{};
  for (std::size_t byte = 0x20; byte <= 0x7E; ++byte) {
    classes[byte] = CharacterClass::kPlain;
  }
  for (const char space : {'\t', '\n', '\r', ' '}) {
    classes[static_cast<unsigned char>(space)] = CharacterClass::kWhiteSpace;
  }
  classes['"'] = CharacterClass::kQuote;
  classes['/'] = CharacterClass::kSlash;
  classes['#'] = CharacterClass::kHash;
  classes['\\'] = CharacterClass::kBackslash;
  return classes;
}();

inline CharacterClass classOf(char byte) {
  return kCharacterClasses[static_cast<unsigned char>(byte)];
}

/// How a byte is written in a string: 0 as it is, 'u' as "\u00XX", anything else as a backslash and
/// that letter.
inline constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> escapes{};
  for (std::size_t byte = 0; byte != escapes.size(); ++byte) {
    escapes[byte] = byte < 0x20 || byte > 0x7E ? 'u' : '\0';
  }
  constexpr std::string_view kPairs = "\\\\//\"\"\bb\tt\nn\ff\rr";  // a byte and its letter
  for (std::size_t i = 0; i != kPairs.size(); i += 2) {
    escapes[static_cast<unsigned char>(kPairs[i])] = kPairs[i + 1];
  }
  return escapes;
}();

inline char escapeOf(char byte) { return kEscapes[static_cast<unsigned char>(byte)]; }

/// What gives a text its structure, outside strings.
constexpr bool isStructure(char c) {
  return c == ',' || c == ':' || c == '{' || c == '}' || c == '[' || c == ']';
}

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }
constexpr bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

}  // namespace json_detail
