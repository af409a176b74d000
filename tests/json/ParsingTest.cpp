#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace {

using namespace std::string_literals;

/// What a tree holds, told in one line: null, "string", number, bool, [..] or {name=..}, and in
/// front of it its comment as <..>.
std::string told(const JSONNode& node) {
  const unsigned int count = node.size();  // first: reading may find out that the value is null
  const std::string comment = node.get_comment();
  std::string text = node.as_string();
  if (node.type() == JSON_STRING) {
    text = '"' + text + '"';
  } else if (node.type() == JSON_ARRAY || node.type() == JSON_NODE) {
    const std::string assign = node.type() == JSON_ARRAY ? "" : "=";
    for (const JSONNode& child : node) {
      text += (text.empty() ? "" : ",") + child.name() + assign + told(child);
    }
    text = assign.empty() ? '[' + text + ']' : '{' + text + '}';
  } else {
    EXPECT_EQ(count + node.duplicate().size(), 0U);
  }
  return (comment.empty() ? "" : '<' + comment + '>') + text;
}

template <JSONNode (*Parse)(std::string_view)>
std::string parsed(const std::string& text) {
  try {
    return told(Parse(text));
  } catch (const std::invalid_argument& fault) {
    return "refused"s + fault.what();
  }
}

/// Texts of which a function makes the same.
struct Case {
  std::vector<std::string> texts;
  std::string result;
};

template <typename Function>
void expectEach(Function function, const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    for (const std::string& text : c.texts) EXPECT_EQ(function(text), c.result) << text;
  }
}

TEST(Parsing, RefusesARootWithoutMatchingBracketsAndIsLenientBelow) {
  const std::vector<Case> cases{
      {{"", " ", "\"x\"", "42", "null", "{", "[", "}", "{]", "[}", "{}{"}, "refused"},
      {{"{\"a\":1} trailing", "x{}", "\xEF{}", "[\"a]\\"}, "refused"},
      {{"#only a comment", "/*c*/", "/*open {}", "#a#b{}", "{}//c", "{\"a\":1}/*c*/"}, "refused"},
      // Objects: the quotes of names are removed by position, whatever stands there.
      {{"{}", "{ }"}, "{}"},
      {{"  {\"a\" : 1}  ", "{\"a\":1}\xC3\xB1", "{xay:1}"}, "{a=1}"},
      {{R"({"a:b,{":1,"":1})"}, "{a:b,{=1,=1}"},
      {{R"({"o":{"a":[1,{}]},"x":"}"})"}, "{o={a=[1,{}]},x=\"}\"}"},
      {{R"({"a":})", R"({"a":"})", R"({"a":"b})", R"({"a":1]})"}, "{a=null}"},
      {{R"({"a":,"b":1})"}, "{a=null,b=1}"},
      {{R"({"a" 1})", "{1}", R"({"a":1,})", R"({"a":1,"b"})"}, "null"},
      {{"{:1}", "{a:1}", "{ab:1}"}, "{=1}"},
      {{"{abc:1,::}"}, "{b=1,=null}"},
      {{R"({,"a":1})"}, "{\"a=1}"},
      {{R"({"a"\:1})"}, "{a\"=1}"},
      {{"{\"a\":\"x\0y\"}"s}, "{a=\"x\0y\"}"s},
      // Arrays.
      {{"[]", "[ ]"}, "[]"},
      {{"[1,,2]"}, "[1,null,2]"},
      {{"[,]", "[[1]x,{}x]"}, "[null,null]"},
      {{R"(["a,b","a:b",[1,[2]]])"}, R"(["a,b","a:b",[1,[2]]])"},
      {{"[1:2]", R"([1,"a":2])"}, "null"},
      {{"[1]2]", "[1]:2]", "[[1}]", "[\"]", "[\"a]", "[{]", "[[]"}, "[null]"},
      // Values tell their type by their first byte.
      {{"[null,Null,nul,NULL,n]", "[1a,x,-,08,~]"}, "[null,null,null,null,null]"},
      {{"[true,tru,truex,false,fals,falsex]"}, "[true,null,null,false,null,null]"},
      {{"[1.50,007,-0,+5,0x1F,.5,1e5]"}, "[1.50,007,-0,+5,0x1F,.5,1e5]"},
      {{R"(["a"b,"a""b"])"}, "[null,\"a\"\"b\"]"},
      // Comments stay in front of values only; a colon or a "#" in one is not told from
      // one outside.
      {{"/*c*/{\"a\":1}", "#c\n{\"a\":1}"}, "<c>{a=1}"},
      {{"//a\n#b\n/*c\nd*/[]"}, "<a\nb\nc\nd>[]"},
      {{"/**//*b*/[]"}, "<\nb>[]"},
      {{"{/*m*/\"a\":[/*e*/1,/*f*//*g*/2]}"}, "{a=<m>[<e>1,<f\ng>2]}"},
      {{"{\"b\":/*v*/1,\"c\":1/*w*/}"}, "{b=null,c=null}"},
      {{"{/*a:b*/\"k\":1}"}, "{=null}"},
      {{"{\"k\":1,/*c*/}", "[/*a:b*/1]"}, "null"},
      {{"[/*a#b*/1]"}, "[<a>null]"},
      // Strings.
      {{R"({"a":"\u00e9","b":"x\"y"})"}, "{a=\"\xE9\",b=\"x\"y\"}"},
      {{R"(["a"\n"b"])"}, "[\"a\"\n\"b\"]"},
      {{R"({"a\"\u0041":"\u20AC"})"}, "{a\"A=\"\xAC\"}"},
      {{"{/*c#a\\b*/x:1}"}, "{\b#=<c>1}"},  // an escape in a comment that ends too early
  };
  expectEach(parsed<JSONWorker::parse>, cases);
  expectEach(parsed<JSONWorker::parse_unformatted>,
             {{{" {}", "#", ""}, "refused"}, {{R"({"a":"b\n"})"}, "{a=\"b\n\"}"}});
}

std::string unescaped(const std::string& text) {
  bool hadEscape = true;
  std::string result = JSONWorker::FixString(text, hadEscape);
  EXPECT_EQ(hadEscape, !text.empty()) << text;
  return result;
}

TEST(Strings, AreUnescapedByteByByte) {
  const std::vector<Case> cases{
      {{R"(\"\/\\\b\f\n\r\t\v)"}, "\"/\\\b\f\n\r\t\v"},
      {{"a\\u00e9", "a\\uFfE9"}, "a\xE9"},
      {{"\\uZZ41 ", "\\x41 ", "\\101 "}, "A "},
      {{"\\u00e"}, "\0"s + "00e"},
      {{"\\u", "\\x", "\\0"}, "\0"s},
      {{"\\x41"}, "\0"s + "41"},
      {{"\\101"}, "\0"s + "01"},
      {{"\\777.", "\\xfF."}, "\xFF."},
      {{"\\8\\q\\ "}, "8q "},
      {{"\\xG1.", "\\u00g1."}, "\x01."},
      {{"\\18z.", "\\x4g."}, "\x40."},
      {{"\\\x01\\", "\\\""}, "\""},
      {{"\\\\\\n\\\\n"}, "\\\n\\n"},
      {{""}, ""},
  };
  expectEach(unescaped, cases);
}

std::string compacted(const std::string& text) {
  return std::string(JSONWorker::RemoveWhiteSpace(text, true).view());
}

TEST(Compaction, KeepsWhatMattersAndCutsTheTextAtWhatCannotBeJson) {
  const std::vector<Case> cases{
      {{"", " \t\r\n"}, ""},
      {{" \t\r\n{ \"a b\" : [~ !\\] }\n"}, "{\"a b\":[~!\\]}"},
      // Strings: nothing is filtered, a quote behind a backslash is hidden.
      {{"[\"\", \"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]"}, "[\"\",\"\x01\x1F\x7F\xC3\xB1 \t\n#/*\"]"},
      {{"[\"a\0b\" ]"s}, "[\"a\0b\"]"s},
      {{R"( ["x\"y\\"])"}, "[\"x\\\x01y\\\\\"]"},
      {{R"(["\\\"\n"])"}, "[\"\\\\\\\x01\\n\"]"},
      // Comments become marked runs.
      {{"{/* a * b /c*/}"}, "{# a * b /c#}"},
      {{"[1,//x y\n2]", "[1,#x y\n2]"}, "[1,#x y#2]"},
      {{"[ #x\r\n /*\xC3\xB1 \" */ ]"}, "[#x\r##\xC3\xB1 \" #]"},
      {{"/**//***/[]//end"}, "###*#[]#end#"},
      {{"[]#", "[]//", "[]/*"}, "[]##"},
      // Cut off.
      {{"[1]\x1F[2]", "[1]\0[2]"s, "[1]\xC3\xB1", "[1]/", "[1]/2"}, "[1]"},
      {{"[1\x7F]", "[1/2]"}, "[1"},
      {{"[\"open ]"}, "[\"open ]"},
      {{"[\"open\\"}, "[\"open\\"},
      {{"[\"open\\\""}, "[\"open\\\x01"},
      {{"[1]/* open"}, "[1]# open#"},
      {{"[1]/* open *"}, "[1]# open *#"},
  };
  expectEach(compacted, cases);
  EXPECT_EQ(JSONWorker::RemoveWhiteSpace(R"([ "a\"b" ])", false).view(), R"(["a\"b"])");
}

const bool kHidden = JSONWorker::used_ascii_one;  // NOLINT(*-global-init): a constant

TEST(Compaction, RemembersThatAQuoteWasHidden) {
  EXPECT_FALSE(kHidden);  // before any text was read
  JSONWorker::used_ascii_one = false;
  EXPECT_EQ(JSONWorker::parse("[\"a\x01\"]").write(), "[\"a\x01\"]");
  compacted(R"(["\""])");
  compacted("[]");
  // From then on the writer takes every 0x01 in source text for a hidden quote.
  EXPECT_EQ(JSONWorker::parse("[\"a\x01\"]").write(), "[\"a\"\"]");
}

/// Where the first comma and the first colon are, -1 for nowhere.
std::string separators(const std::string& text) {
  return std::to_string(static_cast<long>(JSONWorker::FindNextRelevant<','>(text, 0))) + ' ' +
         std::to_string(static_cast<long>(JSONWorker::FindNextRelevant<':'>(text, 0)));
}

// Brackets of the other kind do not count within a group.
TEST(Separators, AreFoundAtTheTopLevelOnly) {
  const std::vector<Case> cases{
      {{"a,b:c"}, "1 3"},
      {{"\",:\",:", "[,:],:", "{,:},:", "[}{],:"}, "4 5"},
      {{"[[,]:],:", "{{,}:},:", "[\"]\",],:"}, "6 7"},
      {{"{]},:"}, "3 4"},
      {{"\"a\0b\":,"s}, "6 5"},
      {{"12345678901234567890\"123456789012345678\",[123456789012345678901]:"}, "40 64"},
      {{"", "\"open,:", "[,:", "[\",:]", "{{},:", "],:", "},:"}, "-1 -1"},
  };
  expectEach(separators, cases);
  EXPECT_EQ(JSONWorker::FindNextRelevant<':'>("a:b:c", 2), 3U);
  EXPECT_EQ(JSONWorker::FindNextRelevant<':'>("", 1), std::string_view::npos);
}

TEST(Lookup, IsExactAndTakesTheFirst) {
  JSONNode root = JSONWorker::parse(
      R"({"certificate":1,"ab":0,"A":2,"a":3,"a":4,"l":[5],"cert|ficate":6,"12345678_12345678":7,)"
      R"("12345678-12345678":8})");
  EXPECT_EQ(root["cert|ficate"].as_int() * root["12345678-12345678"].as_int(), 48);
  EXPECT_EQ(root["a"].as_int(), 3);
  EXPECT_EQ(root.at_nocase("CERTIFICATE").as_int(), 1);
  EXPECT_EQ(root.at_nocase("a").as_int(), 2);
  EXPECT_EQ(root["l"].as_string(), "");
  EXPECT_EQ(root["l"][""].as_int(), 5);  // elements have empty names
  EXPECT_EQ(root.find("x"), root.end());
  EXPECT_EQ(root.find("a") - root.begin(), 3);
  EXPECT_EQ(root.find_nocase("a") - root.begin(), 2);
}

TEST(LookupDeathTest, OfAMissingMemberEndsTheProcess) {
  JSONNode root = JSONWorker::parse(R"({"a":1})");
  EXPECT_DEATH(static_cast<void>(root["\n ~\x7F" + std::string(70, 'n')]),
               "json: the member \"\\? ~\\?n{60}\" is missing");
  EXPECT_DEATH(static_cast<void>(root["a"]["b"]), "\"b\"");
  EXPECT_DEATH(static_cast<void>(root[1U]), "\"1\"");
}

TEST(Depth, ExhaustsNoStack) {
  constexpr std::size_t kDepth = 500'000;
  const std::string text = std::string(kDepth, '[') + std::string(kDepth, ']');
  JSONNode root = JSONWorker::parse(text);
  EXPECT_EQ(root.size(), 1U);
  EXPECT_EQ(root.write(), text);
  EXPECT_EQ(JSONWorker::parse("{\"a\":" + std::string(kDepth, '[') + "}")["a"].as_string(), "null");

  JSONNode built(JSON_ARRAY);
  for (std::size_t i = 1; i < kDepth; ++i) {
    JSONNode outer(JSON_ARRAY);
    outer.push_back(std::move(built));
    built = std::move(outer);
  }
  const JSONNode copy = built.duplicate();
  EXPECT_TRUE(copy == built);
  EXPECT_EQ(copy.write(), text);
}

}  // namespace
