#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
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
    EXPECT_EQ(count, 0U);
  }
  return (comment.empty() ? "" : '<' + comment + '>') + text;
}

std::string refusal(JSONNode (*parse)(std::string_view), const std::string& text) {
  try {
    return told(parse(text));
  } catch (const std::invalid_argument& fault) {
    return "refused"s + fault.what();
  }
}

/// Texts that all tell the same.
struct Case {
  std::vector<std::string> texts;
  std::string told;
};

void expectTold(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    for (const std::string& text : c.texts) {
      EXPECT_EQ(told(JSONWorker::parse(text)), c.told) << text;
    }
  }
}

TEST(Root, MustBeEnclosedInMatchingBrackets) {
  for (const char* text : {"", " ", "\"x\"", "42", "null", "{", "[", "}", "{]", "[}", "{}{"}) {
    EXPECT_EQ(refusal(JSONWorker::parse, text), "refused") << text;
  }
  for (const char* text : {"{\"a\":1} trailing", "x{}", "#only a comment", "/*c*/", "/*open {}",
                           "#a#b{}", "{}//c", "{\"a\":1}/*c*/", "\xEF{}", "[\"a]\\"}) {
    EXPECT_EQ(refusal(JSONWorker::parse, text), "refused") << text;
  }
  for (const char* text : {" {}", "#", ""}) {
    EXPECT_EQ(refusal(JSONWorker::parse_unformatted, text), "refused") << text;
  }
  EXPECT_EQ(told(JSONWorker::parse_unformatted(R"({"a":"b\n"})")), "{a=\"b\n\"}");
}

// The quotes of names are removed by position, whatever stands there.
TEST(Objects, AreSplitByPositionAndLeniently) {
  expectTold({
      {{"{}", "{ }"}, "{}"},
      {{"  {\"a\" : 1}  ", "{\"a\":1}\xC3\xB1", "{xay:1}"}, "{a=1}"},
      {{R"({"a":1,"a":2})"}, "{a=1,a=2}"},
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
  });
}

TEST(Arrays, AreSplitLeniently) {
  expectTold({
      {{"[]", "[ ]"}, "[]"},
      {{"[1,,2]"}, "[1,null,2]"},
      {{"[1,]"}, "[1,null]"},
      {{"[,]"}, "[null,null]"},
      {{R"([{"a":1},2])"}, "[{a=1},2]"},
      {{R"(["a,b","a:b",[1,[2]]])"}, R"(["a,b","a:b",[1,[2]]])"},
      {{"[1:2]", R"([1,"a":2])"}, "null"},
      {{"[1]2]", "[1]:2]", "[[1}]", "[\"]", "[\"a]", "[{]", "[[]"}, "[null]"},
  });
}

TEST(Values, TellTheirTypeByTheirFirstByte) {
  expectTold({
      {{"[null,Null,nul,NULL,n]", "[1a,x,-,08,~]"}, "[null,null,null,null,null]"},
      {{"[true,True,tru,truex]"}, "[true,null,null,null]"},
      {{"[false,False,fals,falsex]"}, "[false,null,null,null]"},
      {{"[1.50,007,-0,+5,0x1F,.5,1e5]"}, "[1.50,007,-0,+5,0x1F,.5,1e5]"},
      {{R"(["a"b,"a""b"])"}, "[null,\"a\"\"b\"]"},
      {{"[[1]x,{}x]"}, "[null,null]"},
  });
}

// A colon or a "#" in a comment is not told from one outside.
TEST(Comments, AreKeptInFrontOfValuesOnly) {
  expectTold({
      {{"/*c*/{\"a\":1}", "#c\n{\"a\":1}"}, "<c>{a=1}"},
      {{"//a\n#b\n/*c\nd*/[]"}, "<a\nb\nc\nd>[]"},
      {{"/**//*b*/[]"}, "<\nb>[]"},
      {{"{/*m*/\"a\":[/*e*/1,/*f*//*g*/2]}"}, "{a=<m>[<e>1,<f\ng>2]}"},
      {{"{\"b\":/*v*/1,\"c\":1/*w*/}"}, "{b=null,c=null}"},
      {{"{/*a:b*/\"k\":1}"}, "{=null}"},
      {{"{\"k\":1,/*c*/}", "[/*a:b*/1]"}, "null"},
      {{"[/*a#b*/1]"}, "[<a>null]"},
  });
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
      {{"\\18z."}, "\x40."},
      {{"\\\x01\\", "\\\""}, "\""},
      {{"\\\\\\n\\\\n"}, "\\\n\\n"},
      {{""}, ""},
  };
  for (const Case& c : cases) {
    for (const std::string& text : c.texts) {
      bool hadEscape = true;
      EXPECT_EQ(JSONWorker::FixString(text, hadEscape), c.told) << text;
      EXPECT_EQ(hadEscape, !text.empty()) << text;
    }
  }
  expectTold({
      {{R"({"a":"\u00e9","b":"x\"y"})"}, "{a=\"\xE9\",b=\"x\"y\"}"},
      {{R"({"a\"\u0041":"\u20AC"})"}, "{a\"A=\"\xAC\"}"},
      {{"{/*c#a\\b*/x:1}"}, "{\b#=<c>1}"},  // an escape in a comment that ends too early
  });
}

TEST(Lookup, IsExactAndTakesTheFirst) {
  JSONNode root = JSONWorker::parse(R"({"certificate":1,"A":2,"a":3,"a":4,"l":[5]})");
  EXPECT_EQ(root["a"].as_int(), 3);
  EXPECT_EQ(root.at_nocase("CERTIFICATE").as_int(), 1);
  EXPECT_EQ(root.at_nocase("a").as_int(), 2);
  EXPECT_EQ(root["l"].as_string(), "");
  EXPECT_EQ(root["l"][""].as_int(), 5);  // elements have empty names
  EXPECT_EQ(root.find("x"), root.end());
  EXPECT_EQ(root.find("a") - root.begin(), 2);
  EXPECT_EQ(root.find_nocase("a") - root.begin(), 1);
  using Search = const JSONNode& (*)(const JSONNode&);
  for (const Search search :
       {Search([](const JSONNode& n) -> auto& { return n.at("Certificate"); }),
        Search([](const JSONNode& n) -> auto& { return n.at("certificat"); }),
        Search([](const JSONNode& n) -> auto& { return n.at_nocase("certificat"); }),
        Search([](const JSONNode& n) -> auto& { return n.at("a").at("x"); }),
        Search([](const JSONNode& n) -> auto& { return n.at(5U); })}) {
    try {
      ADD_FAILURE() << search(root).write();
    } catch (const std::out_of_range& fault) {
      EXPECT_STREQ(fault.what(), "");
    }
  }
}

TEST(LookupDeathTest, OfAMissingMemberEndsTheProcess) {
  JSONNode root = JSONWorker::parse(R"({"a":1})");
  EXPECT_DEATH(static_cast<void>(root["pin\n"]), "json: the member \"pin\\?\" is missing");
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
