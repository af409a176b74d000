#pragma once

#include <cstring>
#include <string>

/// Writes `filler` over every character of the text; the compiler cannot drop the writes.
inline void overwrite(std::string& text, char filler) noexcept {
  for (volatile char& character : text) {
    character = filler;
  }
}

/// Zeroes the text's whole storage and leaves it empty. The storage after the end of the text and
/// the small-string buffer, where a shorter text may have left a longer one's tail, are included.
inline void wipe(std::string& text) noexcept {
  text.resize(text.capacity());  // within the capacity: never allocates
  explicit_bzero(text.data(), text.size());
  text.clear();
}
