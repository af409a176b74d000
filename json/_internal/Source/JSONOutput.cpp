#include "json/_internal/Source/JSONOutput.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "json/_internal/Source/JSONPage.h"

namespace json_detail {

JSONOutput::JSONOutput(std::size_t reserve)
    : start(static_cast<char*>(reserve <= JSONPage::kSize ? JSONPage::List::take()
                                                          : ::operator new(reserve))),
      at(start),
      limit(start + std::max(reserve, JSONPage::kSize)) {}

void JSONOutput::grow(std::size_t bytes) {
  const std::size_t size = length();
  const std::size_t wanted = std::max(static_cast<std::size_t>(limit - start) * 2, size + bytes);
  JSONOutput larger(wanted);
  std::memcpy(larger.start, start, size);
  larger.at += size;
  std::swap(start, larger.start);
  std::swap(at, larger.at);
  std::swap(limit, larger.limit);
}

void JSONOutput::release() noexcept {
  if (limit - start > static_cast<std::ptrdiff_t>(JSONPage::kSize)) {
    ::operator delete(start);
  } else {
    constexpr std::size_t kStrideRest = 64;  // what copying in strides may have left after the text
    JSONPage::List::give(start, std::min(length() + kStrideRest, JSONPage::kSize));
  }
}

}  // namespace json_detail
