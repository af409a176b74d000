#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/JSONIndex.h"
#include "json/_internal/Source/JSONSource.h"

namespace json_detail {

// Walks over the bytes that give a compacted text its structure: , : { } [ ] outside strings. The
// text begins outside strings; one that is not closed hides all that is left. next() gives the next
// of these bytes, or null when there is none.

/// Goes by the index of the source that the text is a slice of. Such a text is plain: it holds
/// neither escapes nor comments.
class IndexedStructure {
 public:
  static constexpr bool kIsPlain = true;

  IndexedStructure(const JSONSource& source, std::string_view text) {
    const auto start = static_cast<std::size_t>(text.data() - source.data());
    const std::size_t end = start + text.size();
    block = source.index() + start / kIndexBlockBytes;
    lastBlock = source.index() + end / kIndexBlockBytes;
    bytes = source.data() + start / kIndexBlockBytes * kIndexBlockBytes;
    withinLast = (std::uint64_t{1} << end % kIndexBlockBytes) - 1;
    open();
    bits &= ~std::uint64_t{0} << start % kIndexBlockBytes;
  }

  const char* next() {
    while (bits == 0) {
      if (block == lastBlock) {
        return nullptr;
      }
      ++block;
      bytes += kIndexBlockBytes;
      open();
    }
    const char* const found = bytes + std::countr_zero(bits);
    bits &= bits - 1;
    return found;
  }

 private:
  void open() { bits = block == lastBlock ? *block & withinLast : *block; }

  const IndexBlock* block;
  const IndexBlock* lastBlock;
  const char* bytes;         // that the block is about
  std::uint64_t withinLast;  // the bits of the last block that are the text's
  std::uint64_t bits = 0;    // what is left of the block
};

/// Looks at every byte.
class ScannedStructure {
 public:
  static constexpr bool kIsPlain = false;

  explicit ScannedStructure(std::string_view text) : at(text.data()), end(at + text.size()) {}

  const char* next() {
    while ((at = findAnyOf<',', ':', '{', '}', '[', ']', '"'>(at, end)) != end) {
      if (*at != '"') {
        return at++;
      }
      at = findAnyOf<'"'>(at + 1, end);
      if (at == end) {
        break;
      }
      ++at;
    }
    return nullptr;
  }

 private:
  const char* at;
  const char* end;
};

}  // namespace json_detail
