#include "host/WipeStack.h"

#include <string.h>  // NOLINT(modernize-deprecated-headers): explicit_bzero

#include <array>

[[gnu::noinline]] void wipeStack() {
  std::array<char, 65536> depth;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  explicit_bzero(depth.data(), depth.size());
}
