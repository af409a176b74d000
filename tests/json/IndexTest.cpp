#include <gtest/gtest.h>

#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "json/_internal/Source/JSONIndex.h"
#include "json/_internal/Source/internalJSONNode.h"
#include "json/json.h"

namespace {

using namespace std::string_literals;
using json_detail::IndexBlock;
using json_detail::PlainFront;

/// A text of up to a few blocks, mostly plain; they are the same in every run.
std::string randomText() {
  static std::minstd_rand random{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  constexpr std::size_t kPlainPieces = 14;
  // clang-format off
  static const std::vector<std::string> kPieces{
      "\"", "\"a\":", "\"bc\":[", "{", "}", "[", "]", ",", ":", "12", "\"text\"", "true",
      "\"a longer text, with /, # and {[:,]} in it\":", "\"\xC3\xB1 \x7F\x01\"",
      " ", "\\", "/", "#", "\x7F", "\x80", "\xFF", "\0"s};
  // clang-format on
  std::string text = random() % 4 == 0 ? "" : "{";
  for (std::size_t pieces = random() % 40; pieces != 0; --pieces) {
    // Only every sixteenth piece may be one of the last, which are not plain.
    text += kPieces.at(random() % (random() % 16 == 0 ? kPieces.size() : kPlainPieces));
  }
  return text + (text.empty() ? "" : "}");
}

// It would only be slower: that splitting goes by the index shows when the index is emptied.
TEST(Index, IsMadeAndUsed) {
  const JSONNode root = JSONWorker::parse(R"({"a":1})");
  *JSONNodeAccess::body(root).source.index() = 0;
  EXPECT_EQ(root.size(), 0U);
  EXPECT_EQ(JSONWorker::parse(R"({"a":1})").size(), 1U);
}

// More bodies than the document's first memory has room for, of any number of members.
TEST(Source, GrowsByPieces) {
  for (const std::size_t count : {20U, 30U, 50U, 250U, 5000U}) {
    std::string text = "[[0,0]";
    for (std::size_t i = 1; i != count; ++i) text += ",[0," + std::to_string(i) + ']';
    text += "]";
    const JSONNode root = JSONWorker::parse(text);
    EXPECT_EQ(root.size(), count);
    for (const JSONNode& pair : root) ASSERT_EQ(pair.size(), 2U);
    EXPECT_EQ(root.write(), text);
  }
  constexpr std::size_t kTooLong = std::size_t{1} << 32U;
  EXPECT_THROW(json_detail::JSONSource source(kTooLong), std::bad_alloc);
  EXPECT_THROW(JSONNode("", std::string_view(std::string("x").data(), kTooLong)), std::bad_alloc);
}

// A text with a space in front is not plain, so that it is split by looking at every byte: when
// both read the same, the index of this processor's way is right, and every other way must make it
// too.
TEST(Index, IsTheSameHoweverItIsMadeAndChangesNothingInWhatIsRead) {
  int parsed = 0;
  for (int round = 0; round != 5000; ++round) {
    const std::string text = randomText();
    const auto told = [&](auto indexer) {
      std::vector<IndexBlock> index(json_detail::indexBlocks(text.size()));
      const std::string padded = text + std::string(json_detail::kIndexBlockBytes, '0');
      const PlainFront front = indexer(padded.data(), text.size(), index.data());
      index.push_back(front.size);
      index.push_back(front.endsInString ? 1 : 0);
      return index;
    };
    const auto indexers = json_detail::indexers();
    for (const auto one : indexers) ASSERT_EQ(told(one), told(indexers.front())) << text;
    try {
      const JSONNode scanned = JSONWorker::parse(' ' + text);
      const JSONNode indexed = JSONWorker::parse(text);
      ASSERT_EQ(indexed.write(), scanned.write()) << text;
      ASSERT_EQ(indexed.write_formatted() + indexed.write(),  // and once it was read
                scanned.write_formatted() + scanned.write());
      ++parsed;
    } catch (const std::invalid_argument&) {
      ASSERT_THROW(static_cast<void>(JSONWorker::parse(text)), std::invalid_argument) << text;
    }
  }
  EXPECT_GT(parsed, 1000);
}

}  // namespace
