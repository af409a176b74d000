#include "signing/NameText.h"

#include <secerr.h>

#include <cctype>
#include <cstring>
#include <span>
#include <string_view>

#include "signing/NssHandles.h"

namespace certificate {

namespace {

constexpr int kFirstPrintable = 0x20;
/// A backslash and two digits, less the byte itself.
constexpr std::size_t kHexEscapeExtra = 2;

/// On purpose the byte's value as a signed character: bytes from 0x80 up are escaped too.
bool isHexEscaped(char c) { return static_cast<signed char>(c) < kFirstPrintable; }

bool isBackslashEscaped(char c) { return c == '"' || c == '\\'; }

bool isSpecial(char c) {
  return std::string_view(",=\"\r\n+<>#;\\").find(c) != std::string_view::npos;
}

bool isOptionalSpace(char c) { return c == ' ' || c == '\r' || c == '\n'; }

char* writeHexEscape(char* destination, unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  *destination++ = '\\';
  *destination++ = kDigits[byte >> 4U];
  *destination++ = kDigits[byte & 0x0FU];
  return destination;
}

char lowerCase(unsigned char c) { return static_cast<char>(std::tolower(c)); }

}  // namespace

char* avaToString(PLArenaPool* arena, const CERTAVA* ava) {
  const ItemHandle value(CERT_DecodeAVAValue(&ava->value));
  if (!value) {
    return nullptr;
  }
  const char* const source = reinterpret_cast<const char*>(value->data);
  const std::size_t size = cert_RFC1485_GetRequiredLen(source, value->len, nullptr) + 1;
  auto* const text =
      static_cast<char*>(arena != nullptr ? PORT_ArenaZAlloc(arena, size) : PORT_ZAlloc(size));
  if (text == nullptr) {
    return nullptr;
  }
  if (escapeAndQuote(text, size, source, value->len, nullptr) != SECSuccess) {
    if (arena == nullptr) {
      PORT_Free(text);
    }
    return nullptr;
  }
  return text;
}

std::size_t cert_RFC1485_GetRequiredLen(const char* source, std::size_t length, EQMode* mode) {
  const EQMode wanted = mode != nullptr ? *mode : EQMode::kMinimal;
  const bool mayQuote = wanted == EQMode::kMinimalQuoted;
  bool needsQuotes = false;
  std::size_t required = 0;
  char previous = '\0';
  const std::string_view text(source, length);
  for (const char c : text) {
    ++required;
    if (isHexEscaped(c)) {
      required += kHexEscapeExtra;
    } else if (isBackslashEscaped(c)) {
      ++required;
    } else if (isSpecial(c)) {
      needsQuotes = needsQuotes || mayQuote;
      required += wanted == EQMode::kFull ? 1 : 0;
    } else if (isOptionalSpace(c) && isOptionalSpace(previous)) {
      needsQuotes = needsQuotes || mayQuote;
    }
    previous = c;
  }
  if (mayQuote && !text.empty() && (isOptionalSpace(text.front()) || isOptionalSpace(previous))) {
    needsQuotes = true;
  }
  if (needsQuotes) {
    required += 2;
  } else if (mayQuote) {
    *mode = EQMode::kMinimal;
  }
  return required;
}

SECStatus escapeAndQuote(char* destination, std::size_t destinationLength, const char* source,
                         std::size_t sourceLength, EQMode* mode) {
  EQMode used = mode != nullptr ? *mode : EQMode::kMinimal;
  if (cert_RFC1485_GetRequiredLen(source, sourceLength, &used) + 1 > destinationLength) {
    PORT_SetError(SEC_ERROR_OUTPUT_LEN);
    return SECFailure;
  }
  if (used == EQMode::kMinimalQuoted) {
    *destination++ = '"';
  }
  for (const char c : std::string_view(source, sourceLength)) {
    if (isHexEscaped(c)) {
      destination = writeHexEscape(destination, static_cast<unsigned char>(c));
      continue;
    }
    if (isBackslashEscaped(c) || (used == EQMode::kFull && isSpecial(c))) {
      *destination++ = '\\';
    }
    *destination++ = c;
  }
  if (used == EQMode::kMinimalQuoted) {
    *destination++ = '"';
  }
  *destination = '\0';
  if (mode != nullptr) {
    *mode = used;
  }
  return SECSuccess;
}

char* appendStringToBuf(char* destination, const char* source, unsigned int* spaceLeft) {
  if (destination == nullptr || source == nullptr || *source == '\0') {
    return destination;
  }
  const std::size_t length = std::strlen(source);
  if (*spaceLeft <= length) {
    return destination;
  }
  for (const char c : std::string_view(source, length)) {
    *destination++ = lowerCase(static_cast<unsigned char>(c));
  }
  *destination++ = '\0';
  *spaceLeft -= static_cast<unsigned int>(length + 1);
  return destination;
}

char* appendItemToBuf(char* destination, const SECItem* item, unsigned int* spaceLeft) {
  if (destination == nullptr || item == nullptr || item->data == nullptr || item->len == 0 ||
      item->data[0] == 0) {
    return destination;
  }
  const std::span<const unsigned char> bytes(item->data, item->len);
  std::size_t needed = bytes.size() + 1;
  for (const unsigned char byte : bytes) {
    needed += byte < kFirstPrintable ? kHexEscapeExtra : 0;
  }
  if (*spaceLeft <= needed) {
    return destination;
  }
  for (const unsigned char byte : bytes) {
    // Unsigned here, unlike the escaping of names: bytes from 0x80 up are copied.
    if (byte < kFirstPrintable) {
      destination = writeHexEscape(destination, byte);
    } else {
      *destination++ = lowerCase(byte);
    }
  }
  *destination++ = '\0';
  *spaceLeft -= static_cast<unsigned int>(needed);
  return destination;
}

}  // namespace certificate
