#include "json/_internal/Source/JSONEscapes.h"

#include "json/_internal/Source/CharacterClass.h"

namespace json_detail {

namespace {

constexpr std::size_t kLongestEscape = 6;

/// A byte that is no hex digit counts as 0.
unsigned int hexDigit(char c) {
  if (!isHexDigit(c)) {
    return 0;
  }
  return static_cast<unsigned int>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
}

/// A byte that is no octal digit counts as 0.
unsigned int octalDigit(char c) { return isOctalDigit(c) ? static_cast<unsigned int>(c - '0') : 0; }

// These give what an escape stands for. `position` is at the byte after the
// backslash and is left on the last byte of the escape.

char Hex(std::string_view text, std::size_t& position) {
  const unsigned int high = hexDigit(text[position + 1]);
  const unsigned int low = hexDigit(text[position + 2]);
  position += 2;
  return static_cast<char>(high * 16 + low);
}

// One byte, on purpose: no UTF-8 is made of the code, and the first two digits are ignored. The
// writer escapes byte by byte, so what it wrote comes back as it was.
char lowByte(std::string_view text, std::size_t& position) {
  position += 2;
  return Hex(text, position);
}

char SpecialChar(std::string_view text, std::size_t& position) {
  const std::size_t left = text.size() - position;
  const char letter = text[position];
  if (letter == 'u') {
    return left < 5 ? '\0' : lowByte(text, position);
  }
  // One byte more than the escape needs, on purpose, here and for octal: at the very end of a
  // string these forms give a zero byte, and their digits stay as characters.
  if (letter == 'x') {
    return left < 4 ? '\0' : Hex(text, position);
  }
  if (!isOctalDigit(letter)) {
    constexpr std::string_view kPairs =
        "\x01\"b\bf\fn\nr\rt\tv\v";  // a letter and its byte; not found is odd
    const std::size_t place = kPairs.find(letter);
    return place % 2 == 0 ? kPairs[place + 1] : letter;
  }
  if (left < 4) {
    return '\0';
  }
  const unsigned int code =
      octalDigit(letter) * 64 + octalDigit(text[position + 1]) * 8 + octalDigit(text[position + 2]);
  position += 2;
  return static_cast<char>(code & 0xFFU);
}

/// Writes a byte as a six-character escape and returns the end.
char* unicodeEscapeInto(char* out, unsigned char byte) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  for (const char c : {'\\', 'u', '0', '0', kHex[byte >> 4U], kHex[byte & 0x0FU]}) {
    *out++ = c;
  }
  return out;
}

/// Writes a byte that needs an escape and returns the end.
char* escapeInto(char* out, char byte) {
  const char letter = escapeOf(byte);
  if (letter == 'u') {
    return unicodeEscapeInto(out, static_cast<unsigned char>(byte));
  }
  *out++ = '\\';
  *out++ = letter;
  return out;
}

}  // namespace

std::string unescaped(std::string_view text, bool& hadEscape) {
  std::string characters;
  characters.reserve(text.size());
  hadEscape = false;
  for (std::size_t position = 0; position < text.size(); ++position) {
    const std::size_t backslash = text.find('\\', position);
    characters += text.substr(position, backslash - position);
    if (backslash == std::string_view::npos) {
      break;
    }
    hadEscape = true;
    position = backslash + 1;
    if (position < text.size()) {  // a backslash as the last byte stands for nothing
      characters += SpecialChar(text, position);
    }
  }
  return characters;
}

std::string unicodeEscape(unsigned char byte) {
  std::string escape(kLongestEscape, '\0');
  unicodeEscapeInto(escape.data(), byte);
  return escape;
}

void appendEscaped(std::string_view text, JSONOutput& output) {
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end;) {
    char* out = output.room(static_cast<std::size_t>(end - at));
    at = copyUntil<NeedsEscape>(at, end, out);
    output.advance(out);
    // What needs an escape seldom comes alone: the bytes of a letter outside ASCII do not.
    for (; at != end && NeedsEscape::matches(*at); ++at) {
      output.advance(escapeInto(output.room(kLongestEscape), *at));
    }
  }
}

}  // namespace json_detail
