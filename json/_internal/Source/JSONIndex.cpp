#include "json/_internal/Source/JSONIndex.h"

#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace json_detail {

namespace {

/// What stands where in a block.
struct BlockBits {
  std::uint64_t quotes = 0;
  std::uint64_t structure = 0;
  std::uint64_t backslashes = 0;
  std::uint64_t others = 0;  // white space, what may open a comment, and what ends a text
};

#if defined(__x86_64__)

// The brackets of both kinds are one bit apart, so that setting it joins them. Compared as signed
// numbers, the bytes from 0x80 on are below the space too.
constexpr char kBracketBit = 0x20;
constexpr char kBehindSpace = 0x21;

BlockBits classifySse2(const char* block) {
  BlockBits bits;
  for (unsigned int at = 0; at != kIndexBlockBytes; at += sizeof(__m128i)) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + at));
    const auto equal = [](__m128i all, char one) {
      return _mm_cmpeq_epi8(all, _mm_set1_epi8(one));
    };
    const auto put = [at](std::uint64_t& all, __m128i hits) {
      all |= std::uint64_t{static_cast<unsigned int>(_mm_movemask_epi8(hits))} << at;
    };
    const __m128i joined = _mm_or_si128(bytes, _mm_set1_epi8(kBracketBit));
    put(bits.quotes, equal(bytes, '"'));
    put(bits.backslashes, equal(bytes, '\\'));
    put(bits.structure, _mm_or_si128(_mm_or_si128(equal(bytes, ','), equal(bytes, ':')),
                                     _mm_or_si128(equal(joined, '{'), equal(joined, '}'))));
    put(bits.others,
        _mm_or_si128(
            _mm_or_si128(equal(bytes, '/'), equal(bytes, '#')),
            _mm_or_si128(equal(bytes, 0x7F), _mm_cmplt_epi8(bytes, _mm_set1_epi8(kBehindSpace)))));
  }
  return bits;
}

// With AVX2 a byte's kind is looked up in two tables of sixteen, by its lower and by its upper four
// bits: it is of the kind that both tables name. The kinds are such that no byte is of two. A
// lookup by the lower bits gives nothing for the bytes from 0x80 on, whose upper bit tells enough.
constexpr unsigned int kComma = 0x01;
constexpr unsigned int kColon = 0x02;
constexpr unsigned int kBracket = 0x04;
constexpr unsigned int kStructure = kComma | kColon | kBracket;
constexpr unsigned int kQuote = 0x08;
constexpr unsigned int kBackslash = 0x10;
constexpr unsigned int kControl = 0x20;  // this and the kinds below: others
constexpr unsigned int kSpaceHashSlash = 0x40;
constexpr unsigned int kDeleteOrAbove = 0x80;

constexpr unsigned int kindOf(unsigned int byte) {
  switch (byte) {
    case ',':
      return kComma;
    case ':':
      return kColon;
    case '{':
    case '}':
    case '[':
    case ']':
      return kBracket;
    case '"':
      return kQuote;
    case '\\':
      return kBackslash;
    case ' ':
    case '#':
    case '/':
      return kSpaceHashSlash;
    case 0x7F:
      return kDeleteOrAbove;
    default:
      return byte < ' ' ? kControl : 0;
  }
}

struct KindTables {
  // Each twice the same sixteen, one for each half of a vector.
  std::array<unsigned char, 32> byLowerBits{};
  std::array<unsigned char, 32> byUpperBits{};
};

constexpr KindTables kKinds = [] {
  KindTables tables;
  for (unsigned int byte = 0; byte != 0x80; ++byte) {
    for (const unsigned int half : {0U, 16U}) {
      tables.byLowerBits.at(half + byte % 16) |= static_cast<unsigned char>(kindOf(byte));
      tables.byUpperBits.at(half + byte / 16) |= static_cast<unsigned char>(kindOf(byte));
    }
  }
  return tables;
}();

static_assert([] {
  for (unsigned int byte = 0; byte != 0x80; ++byte) {
    if ((kKinds.byLowerBits.at(byte % 16) & kKinds.byUpperBits.at(byte / 16)) != kindOf(byte)) {
      return false;
    }
  }
  return true;
}());

[[gnu::target("avx2")]] inline __m256i load(const void* bytes) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(bytes));
}

[[gnu::target("avx2")]] inline __m256i all(unsigned int byte) {
  return _mm256_set1_epi8(static_cast<char>(byte));
}

[[gnu::target("avx2")]] inline std::uint64_t bitsOf(__m256i upperBits) {
  return static_cast<unsigned int>(_mm256_movemask_epi8(upperBits));
}

[[gnu::target("avx2")]] inline BlockBits classifyHalf(const char* half) {
  const __m256i bytes = load(half);
  const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), all(0x0F));
  const __m256i kinds =
      _mm256_or_si256(_mm256_and_si256(_mm256_shuffle_epi8(load(kKinds.byLowerBits.data()), bytes),
                                       _mm256_shuffle_epi8(load(kKinds.byUpperBits.data()), upper)),
                      _mm256_and_si256(bytes, all(kDeleteOrAbove)));
  const __m256i structure = _mm256_and_si256(kinds, all(kStructure));
  // Compared as signed numbers, only kDeleteOrAbove does not exceed the kinds that are no others.
  const __m256i others = _mm256_or_si256(kinds, _mm256_cmpgt_epi8(kinds, all(kControl - 1)));
  return {bitsOf(_mm256_slli_epi16(kinds, 4)),  // kQuote becomes the upper bit
          bitsOf(_mm256_cmpgt_epi8(structure, _mm256_setzero_si256())),
          bitsOf(_mm256_slli_epi16(kinds, 3)),  // kBackslash becomes the upper bit
          bitsOf(others)};
}

[[gnu::target("avx2")]] inline BlockBits classifyAvx2(const char* block) {
  constexpr unsigned int kHalf = kIndexBlockBytes / 2;
  const BlockBits low = classifyHalf(block);
  const BlockBits high = classifyHalf(block + kHalf);
  return {low.quotes | high.quotes << kHalf, low.structure | high.structure << kHalf,
          low.backslashes | high.backslashes << kHalf, low.others | high.others << kHalf};
}

#endif

BlockBits classifyBytes(const char* block) {
  BlockBits bits;
  for (unsigned int at = 0; at != kIndexBlockBytes; ++at) {
    const std::uint64_t bit = std::uint64_t{1} << at;
    switch (const char byte = block[at]) {
      case '"':
        bits.quotes |= bit;
        break;
      case '\\':
        bits.backslashes |= bit;
        break;
      case ',':
      case ':':
      case '{':
      case '}':
      case '[':
      case ']':
        bits.structure |= bit;
        break;
      default:
        bits.others |= byte <= ' ' || byte >= 0x7F || byte == '/' || byte == '#' ? bit : 0;
        break;
    }
  }
  return bits;
}

/// One bit per byte: which of the bytes stand in a string, its opening quote included. `carry` is
/// all ones when the block begins in a string, else 0, and is set for the block behind.
inline std::uint64_t bytesInStrings(std::uint64_t quotes, std::uint64_t& carry) {
  for (unsigned int step = 1; step != kIndexBlockBytes; step *= 2) {
    quotes ^= quotes << step;  // afterwards a bit tells whether the quotes up to it are odd
  }
  quotes ^= carry;
  carry = 0 - (quotes >> (kIndexBlockBytes - 1));
  return quotes;
}

using Classify = BlockBits(const char*);

template <Classify classify>
[[gnu::always_inline]] inline PlainFront indexPlain(const char* text, std::size_t size,
                                                    IndexBlock* index) {
  std::uint64_t carry = 0;
  for (std::size_t from = 0; from < size; from += kIndexBlockBytes) {
    const BlockBits bits = classify(text + from);
    const std::size_t rest = size - from;
    const std::uint64_t within =
        rest < kIndexBlockBytes ? (std::uint64_t{1} << rest) - 1 : ~std::uint64_t{0};
    const bool beginsInString = carry != 0;
    const std::uint64_t outside = ~bytesInStrings(bits.quotes & within, carry);
    if (((bits.backslashes | (bits.others & outside)) & within) != 0) {
      return {from, beginsInString};
    }
    index[from / kIndexBlockBytes] = bits.structure & outside & within;
  }
  if (size % kIndexBlockBytes == 0) {
    index[size / kIndexBlockBytes] = 0;  // the block behind the text, which readers look at too
  }
  return {size, carry != 0};
}

PlainFront indexPlainBytewise(const char* text, std::size_t size, IndexBlock* index) {
  return indexPlain<classifyBytes>(text, size, index);
}

#if defined(__x86_64__)
PlainFront indexPlainSse2(const char* text, std::size_t size, IndexBlock* index) {
  return indexPlain<classifySse2>(text, size, index);
}

[[gnu::target("avx2,bmi")]] PlainFront indexPlainAvx2(const char* text, std::size_t size,
                                                      IndexBlock* index) {
  return indexPlain<classifyAvx2>(text, size, index);
}

const bool hasAvx2 = static_cast<bool>(__builtin_cpu_supports("avx2")) &&
                     static_cast<bool>(__builtin_cpu_supports("bmi"));
#endif

}  // namespace

PlainFront indexPlainFront(const char* text, std::size_t size, IndexBlock* index) {
#if defined(__x86_64__)
  return hasAvx2 ? indexPlainAvx2(text, size, index) : indexPlainSse2(text, size, index);
#else
  return indexPlainBytewise(text, size, index);
#endif
}

std::vector<decltype(&indexPlainFront)> indexers() {
  std::vector<decltype(&indexPlainFront)> all{indexPlainBytewise};
#if defined(__x86_64__)
  all.push_back(indexPlainSse2);
  if (hasAvx2) {
    all.push_back(indexPlainAvx2);
  }
#endif
  return all;
}

}  // namespace json_detail
