#pragma once

#include <bit>
#include <cstddef>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace json_detail {

// Scans look for bytes of a kind. A kind is a class with matches(byte) and, for the vectorised
// scans, matches(sixteen bytes), which gives one bit per byte.

/// The bytes that are one of a few.
template <char... Wanted>
struct AnyOf {
  static bool matches(char byte) { return ((byte == Wanted) || ...); }
#ifdef __SSE2__
  static unsigned int matches(__m128i bytes) {
    __m128i hits = _mm_setzero_si128();
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(Wanted)))), ...);
    return static_cast<unsigned int>(_mm_movemask_epi8(hits));
  }
#endif
};

/// The bytes that a string cannot be written with as they are: outside printable ASCII, and three
/// characters.
struct NeedsEscape {
  static bool matches(char byte) {
    return byte < 0x20 || byte >= 0x7F || byte == '"' || byte == '\\' || byte == '/';
  }
#ifdef __SSE2__
  static unsigned int matches(__m128i bytes) {
    // Compared as signed numbers, the bytes from 0x80 on are below 0x20 too.
    const __m128i outside = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20));
    return AnyOf<0x7F, '"', '\\', '/'>::matches(bytes) |
           static_cast<unsigned int>(_mm_movemask_epi8(outside));
  }
#endif
};

#ifdef __SSE2__
inline constexpr std::ptrdiff_t kStride = 16;
inline constexpr std::ptrdiff_t kHalfStride = 8;

inline __m128i loadStride(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

inline __m128i loadHalf(const char* bytes) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
}
#endif

/// The first byte in [from, end) of the kind, or end.
template <typename Kind>
const char* findFirst(const char* from, const char* end) {
#ifdef __SSE2__
  for (; end - from >= kStride; from += kStride) {
    if (const unsigned int hits = Kind::matches(loadStride(from)); hits != 0) {
      return from + std::countr_zero(hits);
    }
  }
  if (end - from >= kHalfStride) {
    // Eight to fifteen bytes as two halves that may overlap.
    const char* const second = end - kHalfStride;
    const unsigned int hits = Kind::matches(_mm_unpacklo_epi64(loadHalf(from), loadHalf(second)));
    if (hits == 0) {
      return end;
    }
    const int first = std::countr_zero(hits);
    return first < kHalfStride ? from + first : second + (first - kHalfStride);
  }
#endif
  while (from != end && !Kind::matches(*from)) {
    ++from;
  }
  return from;
}

template <char... Wanted>
const char* findAnyOf(const char* from, const char* end) {
  return findFirst<AnyOf<Wanted...>>(from, end);
}

/// Copies [from, end) to `out` up to, not including, the first byte that is one of `Wanted`, and
/// moves `out` behind the copy. May use as much of the memory at `out` as the whole input is long.
template <char... Wanted>
const char* copyUntilAnyOf(const char* from, const char* end, char*& out) {
#ifdef __SSE2__
  for (; end - from >= kStride; from += kStride, out += kStride) {
    const __m128i bytes = loadStride(from);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    if (const unsigned int hits = AnyOf<Wanted...>::matches(bytes); hits != 0) {
      const int length = std::countr_zero(hits);
      out += length;
      return from + length;
    }
  }
#endif
  while (from != end && !AnyOf<Wanted...>::matches(*from)) {
    *out++ = *from++;
  }
  return from;
}

}  // namespace json_detail
