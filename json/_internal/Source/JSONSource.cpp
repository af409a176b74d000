#include "json/_internal/Source/JSONSource.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>

#include "json/_internal/Source/JSONPage.h"
#include "json/_internal/Source/Sanitizer.h"

namespace json_detail {

namespace {

constexpr std::size_t kFirstBodies = 1024;  // bytes
constexpr std::size_t kLargestPiece = std::size_t{1} << 20U;

}  // namespace

JSONSource::JSONSource(std::size_t capacity) {
  if (capacity > std::numeric_limits<std::uint32_t>::max()) {
    throw std::bad_alloc();
  }
  const std::size_t indexAt =
      sizeof(Block) + (capacity + sizeof(IndexBlock) - 1) / sizeof(IndexBlock) * sizeof(IndexBlock);
  const std::size_t bodiesAt = indexAt + indexBlocks(capacity) * sizeof(IndexBlock);
  const std::size_t size = std::max(bodiesAt + kFirstBodies, JSONPage::kSize);
  char* const memory =
      static_cast<char*>(size == JSONPage::kSize ? JSONPage::List::take() : ::operator new(size));
  block = ::new (memory) Block;
  block->memorySize = size;
  block->text = memory + sizeof(Block);
  block->index = reinterpret_cast<IndexBlock*>(memory + indexAt);
  block->next = memory + bodiesAt;
  block->limit = memory + size;
}

void JSONSource::addPiece(Block& block) {
  const std::size_t size =
      block.pieces != nullptr ? std::min(block.pieces->size * 2, kLargestPiece) : kSmallestPiece;
  char* const memory = static_cast<char*>(::operator new(size));
  block.pieces = ::new (memory) Piece{block.pieces, size};
  block.next = memory + sizeof(Piece);
  block.limit = memory + size;
}

void JSONSource::release(Block* block) noexcept {
  const std::size_t used =
      block->pieces != nullptr
          ? block->memorySize
          : block->memorySize - static_cast<std::size_t>(block->limit - block->next);
  while (Piece* const piece = block->pieces) {
    block->pieces = piece->previous;
    allowUse(piece, piece->size);
    ::operator delete(piece);
  }
  allowUse(block, block->memorySize);
  if (block->memorySize == JSONPage::kSize) {
    JSONPage::List::give(block, used);
  } else {
    ::operator delete(block);
  }
}

}  // namespace json_detail
