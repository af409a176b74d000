#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace json_detail {

/// The index of a text says for every block of 64 bytes where the bytes stand
/// that give the text its structure (, : { } [ ] outside strings), one bit per
/// byte. Splitting then walks over bits instead of over the text.
using IndexBlock = std::uint64_t;
inline constexpr std::size_t kIndexBlockBytes = 64;

/// How many blocks a text has.
constexpr std::size_t indexBlocks(std::size_t textSize) {
  return (textSize + kIndexBlockBytes - 1) / kIndexBlockBytes;
}

/// How far a text is plain: without escapes and, outside its strings, without white space, comments
/// and bytes that end it. Compacting leaves that part as it is.
struct PlainFront {
  std::size_t size;  // whole blocks, or all of the text
  bool endsInString;
};

/// Indexes a text that is yet to be compacted as far as it is plain. Looks at whole blocks: the
/// memory goes on after the text for the length of one, with bytes that are plain in a string and
/// outside.
PlainFront indexPlainFront(const char* text, std::size_t size, IndexBlock* index);

/// For tests: the implementations of indexPlainFront() that this processor can run, the portable
/// one first. All give the same.
std::vector<decltype(&indexPlainFront)> indexers();

}  // namespace json_detail
