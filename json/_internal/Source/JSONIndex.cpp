#include "json/_internal/Source/JSONIndex.h"

#include "json/_internal/Source/CharacterClass.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace json_detail {

namespace {

/// What stands where in a block, one bit per byte.
struct BlockBits {
  std::uint64_t odd;  // up to this byte, the quotes of the block are odd in number
  std::uint64_t structure;
  std::uint64_t backslashes;
  std::uint64_t others;  // white space, what may open a comment, and what ends a text
};

/// `within` has a bit for each byte of the text; what stands after its end is no quote.
BlockBits classifyPortably(const char* block, std::uint64_t within) {
  BlockBits bits{};
  std::uint64_t odd = 0;
  for (unsigned int at = 0; at != kIndexBlockBytes; ++at) {
    const char byte = block[at];
    const auto put = [at](bool holds) { return static_cast<std::uint64_t>(holds) << at; };
    odd ^= static_cast<std::uint64_t>(byte == '"') & within >> at;
    bits.odd |= odd << at;
    bits.structure |= put(isStructure(byte));
    bits.backslashes |= put(byte == '\\');
    bits.others |= put(byte <= ' ' || byte >= 0x7F || byte == '/' || byte == '#');
  }
  return bits;
}

using Classify = BlockBits(const char*, std::uint64_t);

template <Classify classify>
[[gnu::always_inline]] inline PlainFront indexPlain(const char* text, std::size_t size,
                                                    IndexBlock* index) {
  std::uint64_t carry = 0;  // all ones when the block begins in a string
  for (std::size_t from = 0; from < size; from += kIndexBlockBytes) {
    const std::size_t length = size - from < kIndexBlockBytes ? size - from : kIndexBlockBytes;
    const std::uint64_t within = ~std::uint64_t{0} >> (kIndexBlockBytes - length);
    const BlockBits bits = classify(text + from, within);
    const std::uint64_t inStrings = bits.odd ^ carry;
    if (((bits.backslashes | (bits.others & ~inStrings)) & within) != 0) {
      return {from, carry != 0};
    }
    index[from / kIndexBlockBytes] = bits.structure & ~inStrings & within;
    carry = 0 - (inStrings >> (length - 1) & 1U);
  }
  if (size % kIndexBlockBytes == 0) {
    index[size / kIndexBlockBytes] = 0;  // the block after the text, which readers look at too
  }
  return {size, carry != 0};
}

PlainFront indexPortably(const char* text, std::size_t size, IndexBlock* index) {
  return indexPlain<classifyPortably>(text, size, index);
}

#if defined(__x86_64__)

// The brackets of both kinds are one bit apart, so that setting it joins them.
// Compared as signed numbers, the bytes from 0x80 on are below the space too.
constexpr char kBracketBit = 0x20;
constexpr char kAfterSpace = 0x21;

/// The carry-less product with all ones has in every bit the parity of the bits
/// up to it.
[[gnu::target("pclmul")]] inline std::uint64_t parities(std::uint64_t bits) {
  const __m128i factor = _mm_cvtsi64_si128(static_cast<long long>(bits));
  const __m128i product = _mm_clmulepi64_si128(factor, _mm_set1_epi8(-1), 0);
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(product));
}

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
  return _mm256_or_si256(
      _mm256_or_si256(equal(bytes, '/'), equal(bytes, '#')),
      _mm256_or_si256(equal(bytes, 0x7F), _mm256_cmpgt_epi8(_mm256_set1_epi8(kAfterSpace), bytes)));
}

[[gnu::target("avx2,bmi,pclmul")]] inline BlockBits classifyAvx2(const char* block,
                                                                 std::uint64_t within) {
  const auto* const halves = reinterpret_cast<const __m256i*>(block);
  const __m256i low = _mm256_loadu_si256(halves);
  const __m256i high = _mm256_loadu_si256(halves + 1);
  return {parities(bitsOf(equal(low, '"'), equal(high, '"')) & within),
          bitsOf(structureOf(low), structureOf(high)), bitsOf(equal(low, '\\'), equal(high, '\\')),
          bitsOf(othersOf(low), othersOf(high))};
}

[[gnu::target("avx2,bmi,pclmul")]] PlainFront indexAvx2(const char* text, std::size_t size,
                                                        IndexBlock* index) {
  return indexPlain<classifyAvx2>(text, size, index);
}

const bool hasAvx2 = static_cast<bool>(__builtin_cpu_supports("avx2")) &&
                     static_cast<bool>(__builtin_cpu_supports("bmi")) &&
                     static_cast<bool>(__builtin_cpu_supports("pclmul"));

#endif

}  // namespace

PlainFront indexPlainFront(const char* text, std::size_t size, IndexBlock* index) {
#if defined(__x86_64__)
  if (hasAvx2) {
    return indexAvx2(text, size, index);
  }
#endif
  return indexPortably(text, size, index);
}

std::vector<decltype(&indexPlainFront)> indexers() {
  std::vector<decltype(&indexPlainFront)> all{indexPortably};
#if defined(__x86_64__)
  if (hasAvx2) {
    all.push_back(indexAvx2);
  }
#endif
  return all;
}

}  // namespace json_detail
