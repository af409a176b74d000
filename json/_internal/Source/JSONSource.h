#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

#include "json/_internal/Source/JSONIndex.h"

namespace json_detail {

/// What is known about a compacted text.
struct TextFacts {
  bool isIndexed = false;
  bool mayHoldEscapes = true;      // false when no byte is a backslash
  bool mayHoldComments = true;     // false when there is no comment run outside its strings
  bool holdsHiddenQuotes = false;  // an escaped quote has become a backslash and 0x01
};

/// The memory of one parsed document: its compacted text, the text's index, and the bodies that are
/// split out of it once, whose texts are slices of it. A handle on a reference-counted block (plain
/// count: one thread at a time, as the whole tree); everything goes together with the last handle.
class JSONSource {
 public:
  JSONSource() = default;
  /// Room for `capacity` bytes of text, to be filled through data() and closed with setText(). A
  /// capacity of 4 GiB or more is refused with std::bad_alloc.
  explicit JSONSource(std::size_t capacity);
  JSONSource(const JSONSource& other) noexcept : block(other.block) {
    if (block != nullptr) {
      ++block->references;
    }
  }
  JSONSource(JSONSource&& other) noexcept : block(std::exchange(other.block, nullptr)) {}
  JSONSource& operator=(const JSONSource& other) noexcept { return *this = JSONSource(other); }
  JSONSource& operator=(JSONSource&& other) noexcept {
    JSONSource taken(std::move(other));  // the old text goes now, not with `other`
    std::swap(block, taken.block);
    return *this;
  }
  ~JSONSource() {
    if (block != nullptr && --block->references == 0) {
      release(block);
    }
  }

  /// The rest is for a source that has a text.
  [[nodiscard]] char* data() const { return block->text; }
  [[nodiscard]] std::string_view view() const { return {block->text, block->size}; }
  void setText(std::size_t size, const TextFacts& facts) {
    block->size = size;
    block->facts = facts;
  }
  [[nodiscard]] const TextFacts& facts() const { return block->facts; }
  /// Room for the index of a text of the capacity.
  [[nodiscard]] IndexBlock* index() const { return block->index; }

  /// Memory for a `T` that lives no longer than the source; it is not given back before.
  template <typename T>
  [[nodiscard]] void* allocate() const {
    static_assert(alignof(T) <= alignof(void*) && sizeof(T) % alignof(void*) == 0 &&
                  sizeof(Piece) + sizeof(T) <= kSmallestPiece);
    if (static_cast<std::size_t>(block->limit - block->next) < sizeof(T)) {
      addPiece(*block);
    }
    return std::exchange(block->next, block->next + sizeof(T));
  }

 private:
  /// Memory added when the block is full, this header in front.
  struct Piece {
    Piece* previous;
    std::size_t size;
  };
  /// The front of the block. The text comes next, then its index, then the first bodies.
  struct Block {
    std::size_t references = 1;
    std::size_t memorySize = 0;  // of this block, all in all
    char* text = nullptr;
    std::size_t size = 0;  // of the text
    IndexBlock* index = nullptr;
    char* next = nullptr;  // where there is room for bodies, up to
    char* limit = nullptr;
    Piece* pieces = nullptr;  // the last one added
    TextFacts facts;
  };

  static constexpr std::size_t kSmallestPiece = 8192;
  static void addPiece(Block& block);
  static void release(Block* block) noexcept;

  Block* block = nullptr;
};

}  // namespace json_detail
