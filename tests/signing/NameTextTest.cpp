#include "signing/NameText.h"

#include <gtest/gtest.h>
#include <secerr.h>
#include <secport.h>

#include <array>
#include <optional>
#include <string>

namespace {

using certificate::EQMode;

/// Escapes into a destination of exactly the needed size, and checks that one byte less is refused.
std::string escaped(const std::string& source, std::optional<EQMode> mode, EQMode* used = nullptr) {
  EQMode forLength = mode.value_or(EQMode::kMinimal);
  const std::size_t length = certificate::cert_RFC1485_GetRequiredLen(source.data(), source.size(),
                                                                      mode ? &forLength : nullptr);
  std::string text(length + 1, '?');
  EQMode forText = mode.value_or(EQMode::kMinimal);
  EQMode* const pointer = mode ? &forText : nullptr;
  EXPECT_EQ(certificate::escapeAndQuote(text.data(), length, source.data(), source.size(), pointer),
            SECFailure);
  EXPECT_EQ(PORT_GetError(), SEC_ERROR_OUTPUT_LEN);
  EXPECT_EQ(text, std::string(length + 1, '?'));
  EXPECT_EQ(
      certificate::escapeAndQuote(text.data(), text.size(), source.data(), source.size(), pointer),
      SECSuccess);
  EXPECT_EQ(text.back(), '\0');
  EXPECT_EQ(forLength, forText);
  if (used != nullptr) *used = forText;
  text.pop_back();
  return text;
}

TEST(EscapeAndQuote, WritesEachModeByItsRules) {
  struct Case {
    std::string source, minimal, quoted, full;
  };
  const Case kCases[]{
      {"", "", "", ""},
      {"plain", "plain", "plain", "plain"},
      {"a,b", "a,b", R"("a,b")", R"(a\,b)"},
      {"=+<>#;", "=+<>#;", R"("=+<>#;")", R"(\=\+\<\>\#\;)"},
      {"a\nb", R"(a\0ab)", R"(a\0ab)",
       R"(a\0ab)"},  // an escaped line feed is not a reason for quotes
      {"\xC3\xA9\x7F", "\\c3\\a9\x7F", "\\c3\\a9\x7F", "\\c3\\a9\x7F"},
      {R"(a"\)", R"(a\"\\)", R"(a\"\\)", R"(a\"\\)"},
      {"a b", "a b", "a b", "a b"},
      {"a  b", "a  b", R"("a  b")", "a  b"},
      {" a", " a", R"(" a")", " a"},
      {"a\r", R"(a\0d)", R"("a\0d")", R"(a\0d)"},  // at the end it is
      {std::string("\0", 1), "\\00", "\\00", "\\00"},
  };
  for (const Case& each : kCases) {
    EXPECT_EQ(escaped(each.source, std::nullopt), each.minimal);
    EXPECT_EQ(escaped(each.source, EQMode::kMinimal), each.minimal);
    EQMode used{};
    EXPECT_EQ(escaped(each.source, EQMode::kMinimalQuoted, &used), each.quoted);
    EXPECT_EQ(used == EQMode::kMinimal, each.quoted.empty() || each.quoted.front() != '"');
    EXPECT_EQ(escaped(each.source, EQMode::kFull), each.full);
  }
}

/// What an append leaves: the text written and the space left. The buffer is filled with '?'.
template <typename Append>
std::pair<std::string, unsigned int> appended(unsigned int space, Append append) {
  std::array<char, 32> buffer{};
  buffer.fill('?');
  unsigned int left = space;
  char* const end = append(buffer.data(), &left);
  EXPECT_EQ(*end, '?');
  return {std::string(buffer.data(), end), left};
}

TEST(AppendToBuffer, TakesATextOnlyWhenTheSpaceExceedsItsLength) {
  using Result = std::pair<std::string, unsigned int>;
  const auto text = [](const char* source) {
    return [source](char* to, unsigned int* left) {
      return certificate::appendStringToBuf(to, source, left);
    };
  };
  EXPECT_EQ(appended(6, text("A@B.C")), Result(std::string("a@b.c\0", 6), 0));
  EXPECT_EQ(appended(5, text("A@B.C")), Result("", 5));
  EXPECT_EQ(appended(5, text("")), Result("", 5));
  EXPECT_EQ(appended(5, text(nullptr)), Result("", 5));
  EXPECT_EQ(certificate::appendStringToBuf(nullptr, "a", nullptr), nullptr);

  const auto item = [](std::string bytes) {
    return [bytes](char* to, unsigned int* left) mutable {
      const SECItem source{siBuffer, reinterpret_cast<unsigned char*>(bytes.data()),
                           static_cast<unsigned int>(bytes.size())};
      return certificate::appendItemToBuf(to, &source, left);
    };
  };
  // The terminator counts twice here: it is part of what must be less than the space left.
  EXPECT_EQ(appended(4, item("Ab")), Result(std::string("ab\0", 3), 1));
  EXPECT_EQ(appended(3, item("Ab")), Result("", 3));
  EXPECT_EQ(appended(8, item("A\n\xC9")), Result(std::string("a\\0a\xC9\0", 6), 2));
  EXPECT_EQ(appended(6, item("A\n\xC9")), Result("", 6));
  EXPECT_EQ(appended(9, item("")), Result("", 9));
  EXPECT_EQ(appended(9, item(std::string("\0a", 2))), Result("", 9));
}

}  // namespace
