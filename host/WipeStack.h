#pragma once

#include <string.h>  // NOLINT(modernize-deprecated-headers): explicit_bzero

#include <array>
#include <cstddef>

/// Bytes of stack that receiving a request, reading its members and answering may use. They take
/// one kilobyte, refusing a text by an exception takes two, and nothing on that way recurses; the
/// first call of a library's function takes three more, when the loader looks it up and saves the
/// vector registers.
inline constexpr std::size_t kMessageStackDepth = 8192;

/// Bytes of stack that an operation on the token may use: three times what the first one takes with
/// a token of software, since nothing bounds what a vendor's module uses.
inline constexpr std::size_t kTokenStackDepth = 65536;

/// Clears the stack below the caller's frame, so that no copy of a PIN outlives the request that
/// carried or used it.
template <std::size_t Depth>
[[gnu::noinline]] void wipeStack() {
  // Cleared once, not also by a compiler that initialises what the source does not.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
  __attribute__((uninitialized)) std::array<char, Depth> depth;
  explicit_bzero(depth.data(), depth.size());
}
