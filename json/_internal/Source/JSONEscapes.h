#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/JSONOutput.h"

namespace json_detail {

// The escapes of strings: undone when a string is read, made when it is written.

/// The characters of a string's inner text; see JSONWorker::FixString().
std::string unescaped(std::string_view text, bool& hadEscape);

/// "\u00XX", with upper-case digits.
std::string unicodeEscape(unsigned char byte);

/// Appends a text with the escapes that it needs, however long it is.
void appendEscaped(std::string_view text, JSONOutput& output);

/// Appends the text of a string between two short texts: escaped when
/// `encoded`, else as it is.
template <std::size_t Before, std::size_t After>
[[gnu::always_inline]] inline void appendBetween(const char (&before)[Before],
                                                 std::string_view text, bool encoded,
                                                 const char (&after)[After], JSONOutput& output) {
  char* out = output.room(Before + text.size() + After);
  std::memcpy(out, before, Before);
  out += Before - 1;
  if (!encoded) {
    copyBytes(out, text.data(), text.size());
    out += text.size();
  } else if (text.size() <= kShortCopy &&
             copyShortWithout<NeedsEscape>(out, text.data(), text.size())) {
    out += text.size();
  } else {
    output.advance(out);
    appendEscaped(text, output);
    out = output.room(After);
  }
  std::memcpy(out, after, After);
  output.advance(out + After - 1);
}

}  // namespace json_detail
