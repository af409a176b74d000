#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace {

using namespace std::literals;

std::string compacted(std::string_view text, bool escapeQuotes = true) {
  return std::string(JSONWorker::RemoveWhiteSpace(text, escapeQuotes).view());
}

TEST(Compaction, KeepsWhatMattersAndCutsTheTextAtWhatCannotBeJson) {
  struct Case {
    std::string compact;
    std::vector<std::string> texts;
  };
  const std::vector<Case> cases{
      {"", {"", " \t\r\n"}},
      {"{\"a b\":[~!\\]}", {" \t\r\n{ \"a b\" : [~ !\\] }\n"}},
      // Strings: nothing is filtered, a quote behind a backslash is hidden.
      {"[\"\",\"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]", {"[\"\", \"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]"}},
      {"[\"a\0b\"]"s, {"[\"a\0b\" ]"s}},
      {"[\"x\\\x01y\\\\\"]", {R"( ["x\"y\\"])"}},
      {"[\"\\\\\\\x01\\n\"]", {R"(["\\\"\n"])"}},
      // Comments become marked runs.
      {"{# a * b /c#}", {"{/* a * b /c*/}"}},
      {"[1,#x y#2]", {"[1,//x y\n2]", "[1,#x y\n2]"}},
      {"[#x\r##\xC3\xB1 \" #]", {"[ #x\r\n /*\xC3\xB1 \" */ ]"}},
      {"###*#[]#end#", {"/**//***/[]//end"}},
      {"[]##", {"[]#", "[]//", "[]/*"}},
      // Cut off.
      {"[1]", {"[1]\x01[2]", "[1]\0[2]"s, "[1]\xC3\xB1", "[1]/", "[1]/2"}},
      {"[1", {"[1\x7F]", "[1/2]"}},
      {"[\"open ]", {"[\"open ]"}},
      {"[\"open\\", {"[\"open\\"}},
      {"[\"open\\\x01", {"[\"open\\\""}},
      {"[1]# open#", {"[1]/* open"}},
      {"[1]# open *#", {"[1]/* open *"}},
  };
  for (const Case& c : cases) {
    for (const std::string& text : c.texts) {
      EXPECT_EQ(compacted(text), c.compact) << text;
    }
  }
  EXPECT_EQ(compacted(R"([ "a\"b" ])", false), R"(["a\"b"])");
}

// Strings are copied sixteen bytes at a time: every length and place of the end must come out.
TEST(Compaction, CopiesStringsOfEveryLength) {
  for (std::size_t length = 0; length < 70; ++length) {
    for (const std::string tail : {"", "\\n", "\\\""}) {
      const std::string content = std::string(length, 'x') + tail;
      const std::string text = "{ \"" + content + "\" : [ \"" + content + "\" ] }";
      JSONNode root = JSONWorker::parse(text);
      EXPECT_EQ(root.write(), "{\"" + content + "\":[\"" + content + "\"]}");
      EXPECT_EQ(root[0U][0U].as_string().size(), length + tail.size() / 2);
    }
  }
}

TEST(Compaction, RemembersThatAQuoteWasHidden) {
  JSONWorker::used_ascii_one = false;
  compacted("[\"\x01\"]");
  EXPECT_FALSE(JSONWorker::used_ascii_one);
  EXPECT_EQ(JSONWorker::parse("[\"a\x01\"]").write(), "[\"a\x01\"]");
  compacted(R"(["\""])");
  EXPECT_TRUE(JSONWorker::used_ascii_one);
  compacted("[]");
  EXPECT_TRUE(JSONWorker::used_ascii_one);
  // From then on the writer takes every 0x01 in source text for a hidden quote.
  EXPECT_EQ(JSONWorker::parse("[\"a\x01\"]").write(), "[\"a\"\"]");
}

// Brackets of the other kind do not count within a group.
TEST(Separators, AreFoundAtTheTopLevelOnly) {
  constexpr std::size_t kNone = std::string_view::npos;
  struct Places {
    std::size_t comma;
    std::size_t colon;
    std::vector<std::string> texts;
  };
  const std::vector<Places> cases{
      {1, 3, {"a,b:c"}},
      {4, 5, {"\",:\",:", "[,:],:", "{,:},:", "[}{],:"}},
      {6, 7, {"[[,]:],:", "{{,}:},:", "[\"]\",],:"}},
      {3, 4, {"{]},:"}},
      {6, 5, {"\"a\0b\":,"s}},
      {40, 64, {"12345678901234567890\"123456789012345678\",[123456789012345678901]:"}},
      {kNone, kNone, {"", "\"open,:", "[,:", "[\",:]", "{{},:", "],:", "},:"}},
  };
  for (const Places& c : cases) {
    for (const std::string& text : c.texts) {
      EXPECT_EQ(JSONWorker::FindNextRelevant<','>(text, 0), c.comma) << text;
      EXPECT_EQ(JSONWorker::FindNextRelevant<':'>(text, 0), c.colon) << text;
    }
  }
  EXPECT_EQ(JSONWorker::FindNextRelevant<','>("a,b:c", 2), kNone);
  EXPECT_EQ(JSONWorker::FindNextRelevant<':'>("a,b:c", 3), 3U);
}

}  // namespace
