// The escapes of strings: undone when a string is read, made when it is written.

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/CharacterClass.h"
#include "json/_internal/Source/JSONWorker.h"

using json_detail::findAnyOf;
using json_detail::JSONOutput;
using json_detail::outputEscapeOf;

namespace {

/// A byte that is no hex digit counts as 0.
unsigned int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return static_cast<unsigned int>(c - '0');
  }
  if (c >= 'A' && c <= 'F') {
    return static_cast<unsigned int>(c - 'A') + 10;
  }
  if (c >= 'a' && c <= 'f') {
    return static_cast<unsigned int>(c - 'a') + 10;
  }
  return 0;
}

/// A byte that is no octal digit counts as 0.
unsigned int octalDigit(char c) {
  return c >= '0' && c <= '7' ? static_cast<unsigned int>(c - '0') : 0;
}

bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }

constexpr std::size_t kLongestEscape = 6;

/// Writes the byte as a six-character escape and returns the end.
char* unicodeEscapeInto(char* out, unsigned char byte) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  for (const char c : {'\\', 'u', '0', '0', kHex[byte >> 4U], kHex[byte & 0x0FU]}) {
    *out++ = c;
  }
  return out;
}

/// Writes a byte that needs an escape and returns the end.
char* escapeInto(char* out, char byte) {
  const char letter = outputEscapeOf(byte);
  if (letter == 'u') {
    return unicodeEscapeInto(out, static_cast<unsigned char>(byte));
  }
  *out++ = '\\';
  *out++ = letter;
  return out;
}

}  // namespace

char JSONWorker::Hex(std::string_view text, std::size_t& position) {
  const unsigned int high = hexDigit(text[position + 1]);
  const unsigned int low = hexDigit(text[position + 2]);
  position += 2;
  return static_cast<char>(high * 16 + low);
}

// One byte, on purpose: no UTF-8 is made of the code, and the first two digits are ignored. The
// writer escapes byte by byte, so what it wrote comes back as it was.
char JSONWorker::UTF8(std::string_view text, std::size_t& position) {
  position += 2;
  return Hex(text, position);
}

char JSONWorker::SpecialChar(std::string_view text, std::size_t& position) {
  const std::size_t left = text.size() - position;
  const char letter = text[position];
  switch (letter) {
    case '\x01':  // a hidden quote
      return '"';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'v':
      return '\v';
    case 'u':
      return left < 5 ? '\0' : UTF8(text, position);
    case 'x':
      // One byte more than the escape needs, on purpose, here and for octal: at the very end of a
      // string these forms give a zero byte, and their digits stay as characters.
      return left < 4 ? '\0' : Hex(text, position);
    default:
      break;
  }
  if (!isOctalDigit(letter)) {
    return letter;
  }
  if (left < 4) {
    return '\0';
  }
  const unsigned int code =
      octalDigit(letter) * 64 + octalDigit(text[position + 1]) * 8 + octalDigit(text[position + 2]);
  position += 2;
  return static_cast<char>(code & 0xFFU);
}

std::string JSONWorker::FixString(std::string_view text, bool& hadEscape) {
  std::string fixed;
  fixed.reserve(text.size());
  hadEscape = false;
  const char* const end = text.data() + text.size();
  for (std::size_t position = 0; position < text.size(); ++position) {
    const char* const from = text.data() + position;
    const char* const backslash = findAnyOf<'\\'>(from, end);
    fixed.append(from, backslash);
    if (backslash == end) {
      break;
    }
    hadEscape = true;
    position = static_cast<std::size_t>(backslash - text.data()) + 1;
    if (position < text.size()) {  // a backslash as the last byte stands for nothing
      fixed += SpecialChar(text, position);
    }
  }
  return fixed;
}

bool JSONWorker::FixInto(json_detail::JSONText& target, std::string_view text) {
  if (text.find('\\') == std::string_view::npos) {
    return false;
  }
  bool hadEscape = false;
  target.assign(FixString(text, hadEscape));
  return hadEscape;
}

std::string JSONWorker::toUTF8(unsigned char byte) {
  std::string escape(kLongestEscape, '\0');
  unicodeEscapeInto(escape.data(), byte);
  return escape;
}

void JSONWorker::UnfixLong(std::string_view text, JSONOutput& output) {
  const char* const end = text.data() + text.size();
  for (const char* at = text.data();; ++at) {
    char* out = output.room(static_cast<std::size_t>(end - at) + kLongestEscape);
    at = json_detail::copyUntil<json_detail::NeedsEscape>(at, end, out);
    if (at == end) {
      output.advance(out);
      return;
    }
    output.advance(escapeInto(out, *at));
    // What needs an escape seldom comes alone: the bytes of a letter outside ASCII do not.
    for (; at + 1 != end && json_detail::NeedsEscape::matches(at[1]); ++at) {
      output.advance(escapeInto(output.room(kLongestEscape), at[1]));
    }
  }
}

void JSONWorker::UnfixString(std::string_view text, bool encoded, std::string& output) {
  JSONOutput written(text.size());
  UnfixString(text, encoded, written);
  output += written.text();
}
