#include "json/_internal/Source/JSONText.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace json_detail {

void JSONText::assignToHeap(std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::bad_alloc();
  }
  auto copy = std::make_unique_for_overwrite<char[]>(text.size());
  std::memcpy(copy.get(), text.data(), text.size());
  forget();
  set(copy.release(), text.size(), Place::kHeap);
}

}  // namespace json_detail
