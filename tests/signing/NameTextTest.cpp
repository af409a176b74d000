#include "signing/NameText.h"

#include <gtest/gtest.h>
#include <secerr.h>
#include <secport.h>

#include <optional>
#include <string>
#include <tuple>

namespace {

using certificate::EQMode;
using namespace std::string_literals;

/// Escapes into a destination of exactly the needed size, and checks that one byte less is refused.
std::string escaped(const std::string& source, std::optional<EQMode> mode) {
  std::optional<EQMode> lowered = mode;
  std::optional<EQMode> used = mode;
  const std::size_t length = certificate::cert_RFC1485_GetRequiredLen(
      source.data(), source.size(), lowered ? &*lowered : nullptr);
  std::string text(length + 1, '?');
  const auto escapeInto = [&](std::size_t space) {
    return certificate::escapeAndQuote(text.data(), space, source.data(), source.size(),
                                       used ? &*used : nullptr);
  };
  EXPECT_EQ(escapeInto(length), SECFailure);
  EXPECT_EQ(PORT_GetError(), SEC_ERROR_OUTPUT_LEN);
  EXPECT_EQ(text, std::string(length + 1, '?'));
  EXPECT_EQ(used, mode);  // stored back on success alone
  EXPECT_EQ(escapeInto(length + 1), SECSuccess);
  const bool bare = mode == EQMode::kMinimalQuoted && text.front() != '"';
  EXPECT_EQ(used, bare ? EQMode::kMinimal : mode);
  EXPECT_EQ(used, lowered);
  EXPECT_EQ(text.back(), '\0');
  text.pop_back();
  return text;
}

TEST(NameText, EscapesInEachModeByItsRules) {
  // The source in minimal, minimal quoted and full escaping.
  const std::tuple<std::string, std::string, std::string, std::string> kCases[]{
      {"", "", "", ""},
      {"a b", "a b", "a b", "a b"},
      {"=+<>#;,", "=+<>#;,", R"("=+<>#;,")", R"(\=\+\<\>\#\;\,)"},
      {"a\nb", R"(a\0ab)", R"(a\0ab)", R"(a\0ab)"},  // in the middle no reason for quotes
      {"a\r", R"(a\0d)", R"("a\0d")", R"(a\0d)"},    // at the end it is
      {"\xC3\xA9\x7F", "\\c3\\a9\x7F", "\\c3\\a9\x7F", "\\c3\\a9\x7F"},
      {R"(a"\)", R"(a\"\\)", R"(a\"\\)", R"(a\"\\)"},
      {"a  b", "a  b", R"("a  b")", "a  b"},
      {" a", " a", R"(" a")", " a"},
      {"\0"s, "\\00", "\\00", "\\00"}};
  for (const auto& [source, minimal, quoted, full] : kCases) {
    EXPECT_EQ(escaped(source, std::nullopt), minimal);
    EXPECT_EQ(escaped(source, EQMode::kMinimal), minimal);
    EXPECT_EQ(escaped(source, EQMode::kMinimalQuoted), quoted);
    EXPECT_EQ(escaped(source, EQMode::kFull), full);
  }
}

TEST(NameText, IsAppendedOnlyWhenTheSpaceExceedsIt) {
  // By appendItemToBuf or appendStringToBuf; source, space; text written, space left.
  const std::tuple<bool, std::string, unsigned int, std::string, unsigned int> kCases[]{
      {false, "A@B.C", 6, "a@b.c\0"s, 0},
      {false, "A@B.C", 5, "", 5},
      // The terminator counts twice here: it is part of what must be less than the space.
      {true, "Ab", 4, "ab\0"s, 1},
      {true, "Ab", 3, "", 3},
      {true, " \x1F\xC9", 8, " \\1f\xC9\0"s, 2},
      {true, "A\n\xC9", 6, "", 6},
      {true, "\0a"s, 9, "", 9}};
  for (auto [raw, source, space, expected, left] : kCases) {
    std::string buffer(32, '?');
    const SECItem item{siBuffer, reinterpret_cast<unsigned char*>(source.data()),
                       static_cast<unsigned int>(source.size())};
    char* const end = raw ? certificate::appendItemToBuf(buffer.data(), &item, &space)
                          : certificate::appendStringToBuf(buffer.data(), source.c_str(), &space);
    EXPECT_EQ(*end, '?');
    EXPECT_EQ(std::string(buffer.data(), end), expected);
    EXPECT_EQ(space, left);
  }
  char place = '?';
  EXPECT_EQ(certificate::appendStringToBuf(&place, nullptr, nullptr), &place);
  unsigned char byte = 'a';
  const SECItem kNothing[]{{siBuffer, nullptr, 1}, {siBuffer, &byte, 0}};
  for (const SECItem* item : {&kNothing[0], &kNothing[1], static_cast<const SECItem*>(nullptr)}) {
    EXPECT_EQ(certificate::appendItemToBuf(&place, item, nullptr), &place);
  }
  EXPECT_EQ(certificate::appendStringToBuf(nullptr, "a", nullptr), nullptr);
}

}  // namespace
