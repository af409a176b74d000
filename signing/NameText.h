#pragma once

#include <certt.h>
#include <secitem.h>

#include <cstddef>

/// Text form of distinguished-name values (after RFC 1485) and the NUL-separated text list that
/// e-mail addresses are gathered in.
namespace certificate {

/// How `escapeAndQuote` treats special characters.
enum class EQMode {
  /// Hex escapes, and a backslash before double quotes and backslashes.
  kMinimal,
  /// As minimal, and the whole value in double quotes when it needs them.
  kMinimalQuoted,
  /// A backslash before every special character; never quoted.
  kFull,
};

/// The escaped value of the attribute: in the arena, or with a null arena on the NSS heap, where
/// the caller releases it with `PORT_Free`. Null on failure.
char* avaToString(PLArenaPool* arena, const CERTAVA* ava);

/// Characters that the escaped source takes, without the terminator. A null mode means minimal.
/// Where `mode` is `kMinimalQuoted` and the value needs no quotes, it is lowered to `kMinimal`.
std::size_t cert_RFC1485_GetRequiredLen(const char* source, std::size_t length, EQMode* mode);

/// Writes the escaped source and a NUL. Fails with the NSS error `SEC_ERROR_OUTPUT_LEN`, writing
/// nothing, when the destination is too small. `mode` is lowered as above.
SECStatus escapeAndQuote(char* destination, std::size_t destinationLength, const char* source,
                         std::size_t sourceLength, EQMode* mode);

/// Appends the source in lower case and a NUL at `destination`, takes what it used off `spaceLeft`
/// and returns the position after the NUL. The space must exceed the length of the text; what does
/// not fit is left out.
char* appendStringToBuf(char* destination, const char* source, unsigned int* spaceLeft);

/// The same for raw bytes, with control characters as hex escapes.
char* appendItemToBuf(char* destination, const SECItem* item, unsigned int* spaceLeft);

}  // namespace certificate
