#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

#include "json/_internal/Source/JSONIndex.h"

namespace json_detail {

/// The memory of one parsed document: its compacted text, the text's index, and the bodies that are
/// split out of it once, whose texts are slices of it. A handle on a reference-counted block (plain
/// count: one thread at a time, as the whole tree); everything goes together with the last handle.
class JSONSource {
 public:
  JSONSource() = default;
  /// Room for `capacity` bytes of text, to be filled through data() and closed with setSize().
  /// A capacity of 4 GiB or more is refused with std::bad_alloc.
  explicit JSONSource(std::size_t capacity);
  JSONSource(const JSONSource& other) noexcept : block(other.block) {
    if (block != nullptr) {
      ++block->references;
    }
  }
  JSONSource(JSONSource&& other) noexcept : block(std::exchange(other.block, nullptr)) {}
  JSONSource& operator=(const JSONSource& other) noexcept { return *this = JSONSource(other); }
  JSONSource& operator=(JSONSource&& other) noexcept {
    std::swap(block, other.block);
    return *this;
  }
  ~JSONSource() {
    if (block != nullptr && --block->references == 0) {
      release(block);
    }
  }

  [[nodiscard]] char* data() const { return reinterpret_cast<char*>(block + 1); }
  [[nodiscard]] std::string_view view() const { return {data(), block->size}; }
  void setSize(std::size_t size) { block->size = size; }

  /// Room for the index of a text of the capacity.
  [[nodiscard]] IndexBlock* index() const { return block->index; }
  [[nodiscard]] bool isIndexed() const { return block->isIndexed; }
  /// The index has been filled, which takes a plain text: neither escapes nor comments.
  void setIndexed() {
    block->isIndexed = true;
    block->mayHoldEscapes = false;
    block->mayHoldComments = false;
  }

  /// False when no byte of the text is a backslash, so that no string needs unescaping.
  [[nodiscard]] bool mayHoldEscapes() const { return block == nullptr || block->mayHoldEscapes; }
  void setMayHoldEscapes(bool may) { block->mayHoldEscapes = may; }
  /// False when the text holds no comment marker outside its strings.
  [[nodiscard]] bool mayHoldComments() const { return block == nullptr || block->mayHoldComments; }
  void setMayHoldComments(bool may) { block->mayHoldComments = may; }

  /// Memory for a `T` that lives no longer than the source; it is not given back before.
  template <typename T>
  [[nodiscard]] void* allocate() const {
    static_assert(alignof(T) <= kAlignment && sizeof(T) % kAlignment == 0);
    if (static_cast<std::size_t>(block->limit - block->next) < sizeof(T)) {
      addPiece(*block, sizeof(T));
    }
    return std::exchange(block->next, block->next + sizeof(T));
  }

 private:
  static constexpr std::size_t kAlignment = alignof(void*);

  /// Memory added when the block is full.
  struct Piece {
    Piece* previous;
    std::size_t size;
  };
  struct Block {
    std::size_t references = 1;
    std::size_t size = 0;        // of the text
    std::size_t memorySize = 0;  // of this block, all in all
    IndexBlock* index = nullptr;
    char* next = nullptr;  // where there is room for bodies, up to
    char* limit = nullptr;
    Piece* pieces = nullptr;  // the last one added
    bool isIndexed = false;
    bool mayHoldEscapes = true;
    bool mayHoldComments = true;
  };

  static void addPiece(Block& block, std::size_t bytes);
  static void release(Block* block) noexcept;

  Block* block = nullptr;
};

}  // namespace json_detail
