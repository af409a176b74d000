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

struct Case {
  std::string text;
  std::string compact;
};

TEST(Compaction, KeepsWhatMattersAndCutsTheTextAtWhatCannotBeJson) {
  const std::vector<Case> cases{
      {"", ""},
      {" \t\r\n{ \"a b\" : 1 }\n", "{\"a b\":1}"},
      {R"(["",""])", R"(["",""])"},
      // Strings: nothing is filtered, a quote behind a backslash is hidden.
      {"[\"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]", "[\"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]"},
      {"[\"a\0b\"]"s, "[\"a\0b\"]"s},
      {R"(["x\"y"])", "[\"x\\\x01y\"]"},
      {R"(["x\\"])", R"(["x\\"])"},
      {R"(["\\\"\n"])", "[\"\\\\\\\x01\\n\"]"},
      // Comments become marked runs.
      {"/*c*/{}", "#c#{}"},
      {"{/* a * b /c*/}", "{# a * b /c#}"},
      {"[1,//x y\n2]", "[1,#x y#2]"},
      {"[1,#x y\r\n2]", "[1,#x y\r#2]"},
      {"/**//***/[]", "###*#[]"},
      {"[]//end", "[]#end#"},
      {"[]#", "[]##"},
      {"[ /*\xC3\xB1 \" */ ]", "[#\xC3\xB1 \" #]"},
      // Cut off.
      {"[1]\x01[2]", "[1]"},
      {"[1]\0[2]"s, "[1]"},
      {"[1\x7F]", "[1"},
      {"[1]\xC3\xB1", "[1]"},
      {"[1/2]", "[1"},
      {"[1]/", "[1]"},
      {"[\"open]", "[\"open]"},
      {"[\"open\\", "[\"open\\"},
      {"[\"open\\\"", "[\"open\\\x01"},
      {"[1]/* open]", "[1]# open]#"},
      {"[1]/*", "[1]##"},
      {"[1]/* open *", "[1]# open *#"},
      {"[~ !\\]", "[~!\\]"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(compacted(c.text), c.compact) << c.text;
  }
}

TEST(Compaction, KeepsEscapedQuotesWhenTheyAreNotToBeHidden) {
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

TEST(Separators, AreFoundAtTheTopLevelOnly) {
  constexpr std::size_t kNone = std::string_view::npos;
  struct Search {
    std::string_view text;
    std::size_t start;
    std::size_t comma;
    std::size_t colon;
  };
  const std::vector<Search> searches{
      {"", 0, kNone, kNone},
      {"a,b:c", 0, 1, 3},
      {"a,b:c", 2, kNone, 3},
      {"a,b:c", 3, kNone, 3},
      {"\",:\",:", 0, 4, 5},
      {"\"open,:", 0, kNone, kNone},
      {"[,:],:", 0, 4, 5},
      {"{,:},:", 0, 4, 5},
      {"[[,]:],:", 0, 6, 7},
      {"[\"]\",],:", 0, 6, 7},
      {"[}{],:", 0, 4, 5},  // brackets of the other kind do not count
      {"{]},:", 0, 3, 4},
      {"[,:", 0, kNone, kNone},
      {"[\",:]", 0, kNone, kNone},
      {"{{},:", 0, kNone, kNone},
      {"],:", 0, kNone, kNone},
      {"},:", 0, kNone, kNone},
      {"\"a\0b\",:"sv, 0, 5, 6},
      {"12345678901234567890\"123456789012345678\",[123456789012345678901]:", 0, 40, 64},
  };
  for (const Search& s : searches) {
    EXPECT_EQ(JSONWorker::FindNextRelevant<','>(s.text, s.start), s.comma) << s.text;
    EXPECT_EQ(JSONWorker::FindNextRelevant<':'>(s.text, s.start), s.colon) << s.text;
  }
}

}  // namespace
