#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define JSON_UNDER_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define JSON_UNDER_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef JSON_UNDER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace json_detail {

/// Under the address sanitizer memory is not kept for reuse, so that leaks and
/// uses after release are found.
#ifdef JSON_UNDER_ADDRESS_SANITIZER
inline constexpr bool kMemoryIsReused = false;
#else
inline constexpr bool kMemoryIsReused = true;
#endif

/// Tells the sanitizer that nothing may touch these bytes until their block is released.
inline void forbidUse([[maybe_unused]] const void* bytes, [[maybe_unused]] std::size_t size) {
#ifdef JSON_UNDER_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(bytes, size);
#endif
}

/// The opposite, for who releases the block may clear it first.
inline void allowUse([[maybe_unused]] const void* bytes, [[maybe_unused]] std::size_t size) {
#ifdef JSON_UNDER_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(bytes, size);
#endif
}

}  // namespace json_detail
