#include <gtest/gtest.h>

#include <array>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "json/_internal/Source/JSONIndex.h"
#include "json/json.h"

namespace {

using namespace std::literals;
using json_detail::IndexBlock;
using json_detail::kIndexBlockBytes;
using json_detail::PlainFront;

/// Texts of up to a few blocks, mostly plain, the same in every run.
class RandomTexts {
 public:
  std::string next() {
    const std::size_t pieces = random() % 40;
    std::string text = random() % 4 == 0 ? "" : "{";
    for (std::size_t i = 0; i != pieces; ++i) {
      // Only every sixteenth piece may be one of the last, which are not plain.
      text += kPieces.at(random() % (random() % 16 == 0 ? kPieces.size() : kPlainPieces));
    }
    return text + (text.empty() ? "" : "}");
  }

 private:
  static constexpr std::size_t kPlainPieces = 14;
  inline static const std::array<std::string, 22> kPieces{
      "\"",
      "\"a\":",
      "\"bc\":[",
      "{",
      "}",
      "[",
      "]",
      ",",
      ":",
      "12",
      "\"text\"",
      "true",
      "\"a longer text, with /, # and {[:,]} in it\":",
      "\"\xC3\xB1 \x7F\x01\"",
      " ",
      "\\",
      "/",
      "#",
      "\x7F",
      "\x80",
      "\xFF",
      "\0"s};
  std::minstd_rand random{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
};

/// What an index says, in characters: the plain text with every other byte than those blanked.
std::string structureOf(const PlainFront& front, const std::vector<IndexBlock>& index,
                        std::string_view text) {
  std::string shown(front.size, ' ');
  for (std::size_t i = 0; i != front.size; ++i) {
    const bool isSet = (index[i / kIndexBlockBytes] >> i % kIndexBlockBytes & 1U) != 0;
    shown[i] = isSet ? text[i] : ' ';
  }
  return shown + (front.endsInString ? "\"" : "");
}

std::string expectedStructure(std::string_view text) {
  std::string shown(text.size(), ' ');
  bool inString = false;
  bool blockBeganInString = false;
  for (std::size_t i = 0; i != text.size(); ++i) {
    const char byte = text[i];
    const bool isOther = static_cast<unsigned char>(byte) <= ' ' ||
                         static_cast<unsigned char>(byte) >= 0x7F || byte == '/' || byte == '#';
    blockBeganInString = i % kIndexBlockBytes == 0 ? inString : blockBeganInString;
    inString = inString != (byte == '"');
    if (byte == '\\' || (!inString && isOther)) {
      shown.resize(i / kIndexBlockBytes * kIndexBlockBytes);
      return shown + (blockBeganInString ? "\"" : "");
    }
    shown[i] = !inString && ",:{}[]"sv.find(byte) != std::string_view::npos ? byte : ' ';
  }
  return shown + (inString ? "\"" : "");
}

TEST(Index, TellsTheStructureHoweverItIsMade) {
  RandomTexts texts;
  for (int round = 0; round != 2000; ++round) {
    const std::string text = texts.next();
    const std::string readable = text + std::string(kIndexBlockBytes, '"');
    for (const auto indexer : json_detail::indexers()) {
      std::vector<IndexBlock> index(json_detail::indexBlocks(text.size()));
      const PlainFront front = indexer(readable.data(), text.size(), index.data());
      ASSERT_EQ(structureOf(front, index, text), expectedStructure(text)) << text;
    }
  }
}

// A text with a space in front is not plain, so that it is split by looking at every byte.
TEST(Index, ChangesNothingInWhatIsRead) {
  RandomTexts texts;
  int parsed = 0;
  for (int round = 0; round != 5000; ++round) {
    const std::string text = texts.next();
    try {
      const JSONNode scanned = JSONWorker::parse(' ' + text);
      const JSONNode indexed = JSONWorker::parse(text);
      ASSERT_EQ(indexed.write(), scanned.write()) << text;
      ASSERT_EQ(indexed.write_formatted(), scanned.write_formatted()) << text;
      ASSERT_EQ(indexed.write(), scanned.write()) << text;
      ++parsed;
    } catch (const std::invalid_argument&) {
      ASSERT_THROW(static_cast<void>(JSONWorker::parse(text)), std::invalid_argument) << text;
    }
  }
  EXPECT_GT(parsed, 1000);
}

}  // namespace
