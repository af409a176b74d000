#pragma once

#include <array>
#include <cstddef>

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
