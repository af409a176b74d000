#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <type_traits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace json_detail {

// Scans look for bytes of a kind. A kind is a class with matches(byte) and, for the vectorised
// scans, matches(sixteen bytes), which gives one bit per byte.

/// The bytes that are one of a few.
template <char... Wanted>
struct AnyOf {
  static bool matches(char byte) { return (std::equal_to{}(byte, Wanted) || ...); }
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
inline constexpr std::ptrdiff_t kShortest = 4;  // for scanShort()

inline __m128i loadStride(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

/// One bit per byte of [from, from + length), kShortest to 15 bytes: looked at as two parts of a
/// fixed size, which may overlap.
template <typename Kind>
[[gnu::always_inline]] inline unsigned int scanShort(const char* from, std::ptrdiff_t length) {
  const auto partsOf = [=](auto part) {
    constexpr std::ptrdiff_t kPart = sizeof part;
    auto second = part;
    std::memcpy(&part, from, sizeof part);
    std::memcpy(&second, from + length - kPart, sizeof second);
    const __m128i both =
        _mm_set_epi64x(static_cast<long long>(second), static_cast<long long>(part));
    const unsigned int hits = Kind::matches(both);
    constexpr unsigned int kMask = (1U << kPart) - 1;
    return (hits & kMask) | ((hits >> 8U & kMask) << static_cast<unsigned int>(length - kPart));
  };
  return length >= 8 ? partsOf(std::uint64_t{}) : partsOf(std::uint32_t{});
}
#endif

/// memcpy() without the call for up to 32 bytes: two moves of a fixed size, which may overlap.
inline void copyBytes(char* to, const char* from, std::size_t size) {
  const auto copyEnds = [=](auto part) {
    std::memcpy(to, from, part);
    std::memcpy(to + size - part, from + size - part, part);
  };
  if (size > 32) {
    std::memcpy(to, from, size);
  } else if (size >= 16) {
    copyEnds(std::integral_constant<std::size_t, 16>());
  } else if (size >= 8) {
    copyEnds(std::integral_constant<std::size_t, 8>());
  } else if (size >= 4) {
    copyEnds(std::integral_constant<std::size_t, 4>());
  } else if (size != 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

/// Copies up to kShortCopy bytes, unless one of them is of the kind: then what is at `to` is of no
/// use, and false is returned.
inline constexpr std::size_t kShortCopy = 32;
template <typename Kind>
[[gnu::always_inline]] inline bool copyShortWithout(char* to, const char* from, std::size_t size) {
#ifdef __SSE2__
  // Looked at and copied as two parts of a fixed size, which may overlap.
  if (size >= 16) {
    const __m128i first = loadStride(from);
    const __m128i second = loadStride(from + size - 16);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), first);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + size - 16), second);
    return (Kind::matches(first) | Kind::matches(second)) == 0;
  }
  const auto copyParts = [=](auto first) {
    auto second = first;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&second, from + size - sizeof second, sizeof second);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof second, &second, sizeof second);
    constexpr unsigned int kPart = (1U << sizeof first) - 1;
    const __m128i both =
        _mm_set_epi64x(static_cast<long long>(second), static_cast<long long>(first));
    return (Kind::matches(both) & (kPart | kPart << 8U)) == 0;
  };
  if (size >= 8) {
    return copyParts(std::uint64_t{});
  }
  if (size >= 4) {
    return copyParts(std::uint32_t{});
  }
#endif
  bool isWithout = true;
  for (std::size_t i = 0; i != size; ++i) {
    to[i] = from[i];
    isWithout = isWithout && !Kind::matches(from[i]);
  }
  return isWithout;
}

/// memcmp() == 0 without the call: in words, of which the last two may overlap.
inline bool equalBytes(const char* left, const char* right, std::size_t size) {
  const auto equalWords = [=](auto word) {
    const auto load = [](const char* bytes) {
      decltype(word) loaded;
      std::memcpy(&loaded, bytes, sizeof loaded);
      return loaded;
    };
    const std::size_t last = size - sizeof word;
    for (std::size_t i = 0; i < last; i += sizeof word) {
      if (load(left + i) != load(right + i)) {
        return false;
      }
    }
    return load(left + last) == load(right + last);
  };
  if (size >= sizeof(std::uint64_t)) {
    return equalWords(std::uint64_t{});
  }
  if (size >= sizeof(std::uint32_t)) {
    return equalWords(std::uint32_t{});
  }
  return size == 0 || equalWords(char{});
}

/// The first byte in [from, end) of the kind, or end.
template <typename Kind>
[[gnu::always_inline]] inline const char* findFirst(const char* from, const char* end) {
#ifdef __SSE2__
  for (; end - from >= 2 * kStride; from += 2 * kStride) {
    const unsigned int hits =
        Kind::matches(loadStride(from)) | Kind::matches(loadStride(from + kStride)) << kStride;
    if (hits != 0) {
      return from + std::countr_zero(hits);
    }
  }
  if (end - from >= kStride) {
    if (const unsigned int hits = Kind::matches(loadStride(from)); hits != 0) {
      return from + std::countr_zero(hits);
    }
    from += kStride;
  }
  if (const std::ptrdiff_t length = end - from; length >= kShortest) {
    const unsigned int hits = scanShort<Kind>(from, length);
    return hits != 0 ? from + std::countr_zero(hits) : end;
  }
#endif
  while (from != end && !Kind::matches(*from)) {
    ++from;
  }
  return from;
}

template <char... Wanted>
[[gnu::always_inline]] inline const char* findAnyOf(const char* from, const char* end) {
  return findFirst<AnyOf<Wanted...>>(from, end);
}

/// Copies [from, end) to `out` up to, not including, the first byte of the kind, and moves `out`
/// behind the copy. May use as much of the memory at `out` as the whole input is long.
template <typename Kind>
[[gnu::always_inline]] inline const char* copyUntil(const char* from, const char* end, char*& out) {
#ifdef __SSE2__
  const auto copyStride = [&](std::ptrdiff_t offset) {
    const __m128i bytes = loadStride(from + offset);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + offset), bytes);
    return Kind::matches(bytes);
  };
  for (; end - from >= 2 * kStride; from += 2 * kStride, out += 2 * kStride) {
    if (const unsigned int hits = copyStride(0) | copyStride(kStride) << kStride; hits != 0) {
      const int copied = std::countr_zero(hits);
      out += copied;
      return from + copied;
    }
  }
  if (end - from >= kStride) {
    if (const unsigned int hits = copyStride(0); hits != 0) {
      const int copied = std::countr_zero(hits);
      out += copied;
      return from + copied;
    }
    from += kStride;
    out += kStride;
  }
  if (const std::ptrdiff_t length = end - from; length >= kShortest) {
    const unsigned int hits = scanShort<Kind>(from, length);
    const std::ptrdiff_t copied = hits != 0 ? std::countr_zero(hits) : length;
    copyBytes(out, from, static_cast<std::size_t>(copied));
    out += copied;
    return from + copied;
  }
#endif
  while (from != end && !Kind::matches(*from)) {
    *out++ = *from++;
  }
  return from;
}

}  // namespace json_detail
