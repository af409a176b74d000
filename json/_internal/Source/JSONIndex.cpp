#include "json/_internal/Source/JSONIndex.h"

#include "json/_internal/Source/CharacterClass.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace json_detail {

namespace {

/// What stands where in a block, one bit per byte.
struct BlockBits {
  std::uint64_t quotes;
  std::uint64_t structure;
  std::uint64_t backslashes;
  std::uint64_t others;  // white space, what may open a comment, and what ends a text
};

BlockBits classifyPortably(const char* block) {
  BlockBits bits{};
  for (unsigned int at = 0; at != kIndexBlockBytes; ++at) {
    const char byte = block[at];
    const auto put = [at](bool holds) { return static_cast<std::uint64_t>(holds) << at; };
    bits.quotes |= put(byte == '"');
    bits.structure |= put(isStructure(byte));
    bits.backslashes |= put(byte == '\\');
    bits.others |= put(byte <= ' ' || byte >= 0x7F || byte == '/' || byte == '#');
  }
  return bits;
}

/// In every bit the parity of the bits up to it.
std::uint64_t paritiesPortably(std::uint64_t bits) {
  for (unsigned int distance = 1; distance != kIndexBlockBytes; distance *= 2) {
    bits ^= bits << distance;
  }
  return bits;
}

template <BlockBits (*classify)(const char*), std::uint64_t (*parities)(std::uint64_t)>
[[gnu::always_inline]] inline PlainFront indexPlain(const char* text, std::size_t size,
                                                    IndexBlock* index) {
  std::uint64_t carry = 0;  // all ones when the block begins in a string
  for (std::size_t from = 0; from < size; from += kIndexBlockBytes) {
    const BlockBits bits = classify(text + from);
    const std::uint64_t inStrings = parities(bits.quotes) ^ carry;
    if ((bits.backslashes | (bits.others & ~inStrings)) != 0) {
      return {from, carry != 0};
    }
    *index++ = bits.structure & ~inStrings;
    carry = 0 - (inStrings >> (kIndexBlockBytes - 1));
  }
  return {size, carry != 0};
}

PlainFront indexPortably(const char* text, std::size_t size, IndexBlock* index) {
  return indexPlain<classifyPortably, paritiesPortably>(text, size, index);
}

#if defined(__x86_64__)

// The brackets of both kinds are one bit apart, so that setting it joins them.
constexpr char kBracketBit = 0x20;

[[gnu::target("avx2")]] inline __m256i equal(__m256i bytes, char wanted) {
  return _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(wanted));
}

[[gnu::target("avx2")]] inline std::uint64_t bitsOf(__m256i low, __m256i high) {
  return static_cast<unsigned int>(_mm256_movemask_epi8(low)) |
         std::uint64_t{static_cast<unsigned int>(_mm256_movemask_epi8(high))} << 32U;
}

[[gnu::target("avx2")]] inline __m256i structureOf(__m256i bytes) {
  const __m256i joined = _mm256_or_si256(bytes, _mm256_set1_epi8(kBracketBit));
  return _mm256_or_si256(_mm256_or_si256(equal(bytes, ','), equal(bytes, ':')),
                         _mm256_or_si256(equal(joined, '{'), equal(joined, '}')));
}

[[gnu::target("avx2")]] inline __m256i othersOf(__m256i bytes) {
  // Compared as signed numbers, the bytes from 0x80 on are below the space too.
  const __m256i outside = _mm256_cmpgt_epi8(_mm256_set1_epi8(' ' + 1), bytes);
  return _mm256_or_si256(_mm256_or_si256(equal(bytes, '/'), equal(bytes, '#')),
                         _mm256_or_si256(equal(bytes, 0x7F), outside));
}

[[gnu::target("avx2,bmi")]] inline BlockBits classifyAvx2(const char* block) {
  const auto* const halves = reinterpret_cast<const __m256i*>(block);
  const __m256i low = _mm256_loadu_si256(halves);
  const __m256i high = _mm256_loadu_si256(halves + 1);
  return {bitsOf(equal(low, '"'), equal(high, '"')), bitsOf(structureOf(low), structureOf(high)),
          bitsOf(equal(low, '\\'), equal(high, '\\')), bitsOf(othersOf(low), othersOf(high))};
}

/// The carry-less product with all ones.
[[gnu::target("avx2,pclmul")]] inline std::uint64_t paritiesAvx2(std::uint64_t bits) {
  const __m128i factor = _mm_cvtsi64_si128(static_cast<long long>(bits));
  const __m128i product = _mm_clmulepi64_si128(factor, _mm_set1_epi8(-1), 0);
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(product));
}

[[gnu::target("avx2,bmi,pclmul")]] PlainFront indexAvx2(const char* text, std::size_t size,
                                                        IndexBlock* index) {
  return indexPlain<classifyAvx2, paritiesAvx2>(text, size, index);
}

const bool hasVectors = static_cast<bool>(__builtin_cpu_supports("avx2")) &&
                        static_cast<bool>(__builtin_cpu_supports("bmi")) &&
                        static_cast<bool>(__builtin_cpu_supports("pclmul"));

#endif

}  // namespace

PlainFront indexPlainFront(const char* text, std::size_t size, IndexBlock* index) {
#if defined(__x86_64__)
  if (hasVectors) {
    return indexAvx2(text, size, index);
  }
#endif
  return indexPortably(text, size, index);
}

std::vector<decltype(&indexPlainFront)> indexers() {
  std::vector<decltype(&indexPlainFront)> all{indexPortably};
#if defined(__x86_64__)
  if (hasVectors) {
    all.push_back(indexAvx2);
  }
#endif
  return all;
}

}  // namespace json_detail
