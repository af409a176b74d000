#include "json/_internal/Source/JSONOutput.h"

#include <algorithm>

namespace json_detail {

void JSONOutput::grow(std::size_t bytes) {
  const std::size_t size = length();
  const std::size_t wanted = std::max(target.size() * 2, size + bytes);
  target.resize(size);  // nothing behind is worth moving
  target.reserve(wanted);
  open(size);
}

}  // namespace json_detail
