#include "json/_internal/Source/JSONText.h"

#include <memory>
#include <new>

namespace json_detail {

JSONSource::JSONSource(std::size_t capacity)
    : block(::new (::operator new(sizeof(Block) + capacity)) Block{1, 0, true, true}) {}

void JSONText::assignToHeap(std::string_view text) {
  auto bytes = std::make_unique_for_overwrite<char[]>(text.size());
  std::memcpy(bytes.get(), text.data(), text.size());
  release();
  setRemote(bytes.release(), text.size(), kHeap);
}

}  // namespace json_detail
