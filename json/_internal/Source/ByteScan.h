#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace json_detail {

#ifdef __SSE2__
inline constexpr std::ptrdiff_t kStride = 16;

inline __m128i loadStride(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

/// One bit per byte of a stride, set where the byte is one of `Wanted`.
template <char... Wanted>
unsigned int matchStride(__m128i bytes) {
  __m128i hits = _mm_setzero_si128();
  ((hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(Wanted)))), ...);
  return static_cast<unsigned int>(_mm_movemask_epi8(hits));
}
#endif

/// The first byte in [from, end) that is one of `Wanted`, or end.
template <char... Wanted>
const char* findAnyOf(const char* from, const char* end) {
#ifdef __SSE2__
  for (; end - from >= kStride; from += kStride) {
    if (const unsigned int hits = matchStride<Wanted...>(loadStride(from)); hits != 0) {
      return from + std::countr_zero(hits);
    }
  }
#endif
  while (from != end && ((*from != Wanted) && ...)) {
    ++from;
  }
  return from;
}

/// Copies [from, end) to `out` up to, not including, the first byte that is one of `Wanted`, and
/// moves `out` behind the copy. May use as much of the memory at `out` as the whole input is long.
template <char... Wanted>
const char* copyUntilAnyOf(const char* from, const char* end, char*& out) {
#ifdef __SSE2__
  for (; end - from >= kStride; from += kStride, out += kStride) {
    const __m128i bytes = loadStride(from);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    if (const unsigned int hits = matchStride<Wanted...>(bytes); hits != 0) {
      const int length = std::countr_zero(hits);
      out += length;
      return from + length;
    }
  }
#endif
  while (from != end && ((*from != Wanted) && ...)) {
    *out++ = *from++;
  }
  return from;
}

}  // namespace json_detail
