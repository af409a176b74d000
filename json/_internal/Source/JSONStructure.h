#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "json/_internal/Source/CharacterClass.h"
#include "json/_internal/Source/JSONSource.h"
#include "json/_internal/Source/JSONTypes.h"

namespace json_detail {

// Stage two of parsing: a compacted text tells its parts, as slices of itself.

/// Walks over the bytes that give a text its structure: , : { } [ ] outside strings. The text
/// begins outside strings; one that is not closed hides all that is left. This walk goes by the
/// index of the source that the text is a slice of.
class IndexedStructure {
 public:
  IndexedStructure(const JSONSource& source, std::string_view text)
      : end(text.data() + text.size()) {
    const auto start = static_cast<std::size_t>(text.data() - source.data());
    block = source.index() + start / kIndexBlockBytes;
    bytes = source.data() + start / kIndexBlockBytes * kIndexBlockBytes;
    bits = *block & ~std::uint64_t{0} << start % kIndexBlockBytes;
  }

  /// The next of these bytes, or null when there is none.
  const char* next() {
    while (bits == 0) {
      bytes += kIndexBlockBytes;
      if (bytes >= end) {
        return nullptr;
      }
      bits = *++block;
    }
    const char* const found = bytes + std::countr_zero(bits);
    bits &= bits - 1;
    return found < end ? found : nullptr;
  }

 private:
  const char* end;
  const IndexBlock* block;
  const char* bytes;   // that the block is about
  std::uint64_t bits;  // what is left of the block
};

/// The same walk for a text without an index: looks at every byte.
class ScannedStructure {
 public:
  explicit ScannedStructure(std::string_view text) : rest(text) {}

  const char* next() {
    while (!rest.empty()) {
      const char* const at = rest.data();
      if (*at == '"') {
        const std::size_t close = rest.find('"', 1);
        rest.remove_prefix(close == std::string_view::npos ? rest.size() : close + 1);
        continue;
      }
      rest.remove_prefix(1);
      if (isStructure(*at)) {
        return at;
      }
    }
    return nullptr;
  }

 private:
  std::string_view rest;
};

/// The next of some separators outside brackets; null when there is none, also
/// when a bracket is closed before or is not closed at all.
template <char... Separators, typename Structure>
[[gnu::always_inline]] inline const char* nextRelevant(Structure& structure) {
  char open = 0;
  char close = 0;
  std::size_t depth = 0;  // of the group of brackets being skipped; other kinds do not count
  while (const char* const at = structure.next()) {
    const char byte = *at;
    if (depth != 0) {
      depth += byte == open ? 1 : 0;
      depth -= byte == close ? 1 : 0;
    } else if (((byte == Separators) || ...)) {
      return at;
    } else if (byte == ']' || byte == '}') {
      return nullptr;
    } else if (byte == '[' || byte == '{') {
      open = byte;
      close = byte == '[' ? ']' : '}';
      depth = 1;
    }
  }
  return nullptr;
}

inline std::string_view between(const char* from, const char* to) {
  return {from, static_cast<std::size_t>(to - from)};
}

inline bool isEnclosed(std::string_view text, char open, char close) {
  return text.size() >= 2 && text.front() == open && text.back() == close;
}

/// Gives the texts of the name and of the value of every member of an object's text to `take(name,
/// value)`, the name without its closing quote. False when a member has no colon.
template <typename Structure, typename Take>
[[gnu::always_inline]] inline bool splitNode(std::string_view text, Structure structure,
                                             Take take) {
  const char* const end = text.data() + text.size() - 1;
  for (const char* start = text.data() + 1;;) {
    const char* const colon = nextRelevant<':'>(structure);
    if (colon == nullptr) {
      return false;
    }
    // Up to the byte before the colon, whatever it is. There may be none: then the name is empty.
    const std::string_view name = between(start, colon > start ? colon - 1 : start);
    const char* const comma = nextRelevant<','>(structure);
    take(name, between(colon + 1, comma != nullptr ? comma : end));
    if (comma == nullptr) {
      return true;
    }
    start = comma + 1;
  }
}

/// The same for the elements of an array's text, whose names are empty. False
/// when one holds a colon: an array holds no members.
template <typename Structure, typename Take>
[[gnu::always_inline]] inline bool splitArray(std::string_view text, Structure structure,
                                              Take take) {
  const char* const end = text.data() + text.size() - 1;
  for (const char* start = text.data() + 1;;) {
    const char* const separator = nextRelevant<',', ':'>(structure);
    if (separator != nullptr && *separator == ':') {
      return false;
    }
    take(std::string_view(), between(start, separator != nullptr ? separator : end));
    if (separator == nullptr) {
      return true;
    }
    start = separator + 1;
  }
}

/// The comment runs ("#...#", one after the other) at the front of a text. A
/// run that is not closed takes all that is left.
std::string_view commentRuns(std::string_view text);
inline std::string_view commentsOf(std::string_view text) {
  return text.starts_with('#') ? commentRuns(text) : std::string_view();  // there are seldom any
}

/// The texts of comment runs, joined by line breaks.
std::string commentText(std::string_view runs);

/// The type code of a value that is no string; JSON_NULL when it is malformed.
char typeOfOther(std::string_view value);

/// The type code of a value by its first byte and its last; JSON_NULL when it is malformed.
inline char typeOf(std::string_view value) {
  return isEnclosed(value, '"', '"') ? JSON_STRING : typeOfOther(value);  // most are strings
}

}  // namespace json_detail
