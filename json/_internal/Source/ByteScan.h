#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "json/_internal/Source/CharacterClass.h"

namespace json_detail {

// Scans look for bytes of a kind: a class with matches(byte) and, where there
// are vectors, matches(sixteen bytes), which sets the bytes that match.

#ifdef __SSE2__
inline constexpr std::ptrdiff_t kStride = sizeof(__m128i);

inline __m128i loadStride(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

inline void storeStride(char* to, __m128i bytes) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
}

inline __m128i equalTo(__m128i bytes, char wanted) {
  return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(wanted));
}

/// One bit per byte.
inline unsigned int bitsOf(__m128i hits) {
  return static_cast<unsigned int>(_mm_movemask_epi8(hits));
}
#endif

/// What ends a run of a string's ordinary characters.
struct QuoteOrBackslash {
  static bool matches(char byte) { return byte == '"' || byte == '\\'; }
#ifdef __SSE2__
  static __m128i matches(__m128i bytes) { return equalTo(bytes, '"') | equalTo(bytes, '\\'); }
#endif
};

/// The bytes that a string cannot be written with as they are: outside
/// printable ASCII, and three characters.
struct NeedsEscape {
  static bool matches(char byte) { return escapeOf(byte) != 0; }
#ifdef __SSE2__
  static __m128i matches(__m128i bytes) {
    // Compared as signed numbers, the bytes from 0x80 on are below 0x20 too.
    return _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)) | equalTo(bytes, 0x7F) | equalTo(bytes, '"') |
           equalTo(bytes, '\\') | equalTo(bytes, '/');
  }
#endif
};

/// Copies [from, end) to `out` up to, not including, the first byte of the kind, and moves `out` to
/// the end of the copy. May use as much of the memory at `out` as the whole input is long.
template <typename Kind>
[[gnu::always_inline]] inline const char* copyUntil(const char* from, const char* end, char*& out) {
#ifdef __SSE2__
  for (; end - from >= kStride; from += kStride, out += kStride) {
    const __m128i bytes = loadStride(from);
    storeStride(out, bytes);
    if (const unsigned int hits = bitsOf(Kind::matches(bytes)); hits != 0) {
      out += std::countr_zero(hits);
      return from + std::countr_zero(hits);
    }
  }
#endif
  while (from != end && !Kind::matches(*from)) {
    *out++ = *from++;
  }
  return from;
}

// Short texts are copied without a call: as two words of a fixed size, which may overlap.

template <typename Word>
Word loadWord(const char* bytes) {
  Word word{};
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

template <typename Word>
void copyEnds(char* to, const char* from, std::size_t size) {
  const auto first = loadWord<Word>(from);
  const auto last = loadWord<Word>(from + size - sizeof(Word));
  std::memcpy(to, &first, sizeof(Word));
  std::memcpy(to + size - sizeof last, &last, sizeof(Word));
}

/// memcpy(), without a call for up to 32 bytes.
inline void copyBytes(char* to, const char* from, std::size_t size) {
  struct Sixteen {
    std::uint64_t low;
    std::uint64_t high;
  };
  if (size > 2 * sizeof(Sixteen)) {
    std::memcpy(to, from, size);
  } else if (size >= sizeof(Sixteen)) {
    copyEnds<Sixteen>(to, from, size);
  } else if (size >= sizeof(std::uint64_t)) {
    copyEnds<std::uint64_t>(to, from, size);
  } else if (size >= sizeof(std::uint32_t)) {
    copyEnds<std::uint32_t>(to, from, size);
  } else if (size != 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

template <typename Word>
bool equalEnds(const char* left, const char* right, std::size_t size) {
  const std::size_t last = size - sizeof(Word);
  return loadWord<Word>(left) == loadWord<Word>(right) &&
         loadWord<Word>(left + last) == loadWord<Word>(right + last);
}

/// Equality, without a call for the usual lengths of names.
inline bool equalNames(std::string_view left, std::string_view right) {
  const std::size_t size = left.size();
  if (size != right.size() || size < sizeof(std::uint32_t) || size > 2 * sizeof(std::uint64_t)) {
    return left == right;
  }
  return size < sizeof(std::uint64_t) ? equalEnds<std::uint32_t>(left.data(), right.data(), size)
                                      : equalEnds<std::uint64_t>(left.data(), right.data(), size);
}

/// Copies up to kShortCopy bytes, unless one of them is of the kind: then what
/// is at `to` is of no use, and false is returned.
inline constexpr std::size_t kShortCopy = 32;
template <typename Kind>
[[gnu::always_inline]] inline bool copyShortWithout(char* to, const char* from, std::size_t size) {
#ifdef __SSE2__
  if (size >= kStride) {
    const __m128i first = loadStride(from);
    const __m128i last = loadStride(from + size - kStride);
    storeStride(to, first);
    storeStride(to + size - kStride, last);
    return bitsOf(Kind::matches(first) | Kind::matches(last)) == 0;
  }
  const auto copyWords = [=](auto word) {
    using Word = decltype(word);
    copyEnds<Word>(to, from, size);
    constexpr unsigned int kBits = (1U << sizeof word) - 1;
    const __m128i both =
        _mm_set_epi64x(static_cast<long long>(loadWord<Word>(from + size - sizeof word)),
                       static_cast<long long>(loadWord<Word>(from)));
    return (bitsOf(Kind::matches(both)) & (kBits | kBits << sizeof(std::uint64_t))) == 0;
  };
  if (size >= sizeof(std::uint64_t)) {
    return copyWords(std::uint64_t{});
  }
  if (size >= sizeof(std::uint32_t)) {
    return copyWords(std::uint32_t{});
  }
#endif
  const char* const end = from + size;
  return copyUntil<Kind>(from, end, to) == end;
}

}  // namespace json_detail
