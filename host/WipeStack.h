#pragma once

#include <string.h>  // NOLINT(modernize-deprecated-headers): explicit_bzero

#include <array>
#include <cstddef>

/// Bytes of stack that receiving a request, reading its members and answering may use. It is twice
/// what they do use, however the request is made: nothing on that way recurses.
inline constexpr std::size_t kMessageStackDepth = 5120;

/// Bytes of stack that an operation on the token may use: three times what it takes with a token of
/// software, since nothing bounds what a vendor's module uses.
inline constexpr std::size_t kTokenStackDepth = 65536;

/// Clears the stack below the caller's frame, so that no copy of a PIN outlives the request that
/// carried or used it.
template <std::size_t Depth>
[[gnu::noinline]] void wipeStack() {
  std::array<char, Depth> depth;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  explicit_bzero(depth.data(), depth.size());
}
