#pragma once

#include <array>
#include <cstddef>

#include "json/_internal/Source/FreeList.h"

namespace json_detail {

/// A block of memory that a short document with its bodies, or a short answer,
/// fits into. A few are kept for reuse.
struct JSONPage {
  static constexpr std::size_t kSize = 4096;
  static constexpr std::size_t kKept = 4;
  using List = FreeList<JSONPage, kKept>;

  alignas(void*) std::array<char, kSize> bytes;
};

}  // namespace json_detail
