#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace {

using namespace std::string_literals;

/// What a tree holds, told in one line: null, "string", number, bool, [..] or {name=..}.
std::string told(const JSONNode& node) {
  const unsigned int count = node.size();  // first: reading may find out that the value is null
  const std::string text = node.as_string();
  std::string all;
  switch (node.type()) {
    case JSON_STRING:
      return '"' + text + '"';
    case JSON_ARRAY:
      for (const JSONNode& element : node) {
        all += (all.empty() ? "" : ",") + told(element);
      }
      return '[' + all + ']';
    case JSON_NODE:
      for (const JSONNode& member : node) {
        all += (all.empty() ? "" : ",") + member.name() + '=' + told(member);
      }
      return '{' + all + '}';
    default:
      EXPECT_EQ(count, 0U);
      return text;
  }
}

struct Case {
  std::string text;
  std::string told;
};

void expectTold(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    EXPECT_EQ(told(JSONWorker::parse(c.text)), c.told) << c.text;
  }
}

TEST(Root, MustBeEnclosedInMatchingBrackets) {
  for (const std::string text : {"",
                                 " ",
                                 "\"x\"",
                                 "42",
                                 "null",
                                 "{",
                                 "[",
                                 "}",
                                 "{]",
                                 "[}",
                                 "{\"a\":1} trailing",
                                 "x{}",
                                 "#only a comment",
                                 "/*c*/",
                                 "/*open {}",
                                 "#a#b{}",
                                 "{}//c",
                                 "{\"a\":1}/*c*/",
                                 "\xEF{}",
                                 "[\"a]\\",
                                 "{}{"}) {
    EXPECT_THROW(JSONWorker::parse(text), std::invalid_argument) << text;
  }
  try {
    JSONWorker::parse("x");
  } catch (const std::invalid_argument& fault) {
    EXPECT_STREQ(fault.what(), "");
  }
  EXPECT_THROW(JSONWorker::parse_unformatted(" {}"), std::invalid_argument);
  EXPECT_THROW(JSONWorker::parse_unformatted("#"), std::invalid_argument);
  EXPECT_THROW(JSONWorker::parse_unformatted(""), std::invalid_argument);
  EXPECT_EQ(told(JSONWorker::parse_unformatted(R"({"a":"b\n"})")), "{a=\"b\n\"}");
}

TEST(Objects, AreSplitByPositionAndLeniently) {
  expectTold({
      {"  {\"a\" : 1}  ", "{a=1}"},
      {"{}", "{}"},
      {"{ }", "{}"},
      {R"({"a":1,"a":2})", "{a=1,a=2}"},
      {R"({"a:b,{":1})", "{a:b,{=1}"},
      {R"({"o":{"a":[1,{}]},"x":"}"})", "{o={a=[1,{}]},x=\"}\"}"},
      {R"({"":1})", "{=1}"},
      {R"({"a":})", "{a=null}"},
      {R"({"a":,"b":1})", "{a=null,b=1}"},
      {R"({"a" 1})", "null"},
      {R"({1})", "null"},
      {R"({"a":1,})", "null"},
      {R"({"a":1,"b"})", "null"},
      {R"({,"a":1})", "{\"a=1}"},  // quotes are removed by position
      {"{:1}", "{=1}"},
      {"{a:1}", "{=1}"},
      {"{ab:1}", "{=1}"},
      {"{abc:1,::}", "{b=1,=null}"},
      {R"({"a"\:1})", "{a\"=1}"},
      {R"({"a":"})", "{a=null}"},
      {R"({"a":"b})", "{a=null}"},
      {R"({"a":1]})", "{a=null}"},
      {"{\"a\":\"x\0y\"}"s, "{a=\"x\0y\"}"s},
      {"{\"a\":1}\xC3\xB1", "{a=1}"},
  });
}

TEST(Arrays, AreSplitLeniently) {
  expectTold({
      {"[1,2]", "[1,2]"},
      {"[]", "[]"},
      {"[1,,2]", "[1,null,2]"},
      {"[1,]", "[1,null]"},
      {"[,]", "[null,null]"},
      {R"([{"a":1},2])", "[{a=1},2]"},
      {R"(["a,b",[1,[2]]])", "[\"a,b\",[1,[2]]]"},
      {"[1:2]", "null"},
      {R"([1,"a":2])", "null"},
      {R"(["a:b"])", "[\"a:b\"]"},
      {"[1]2]", "[null]"},
      {"[1]:2]", "[null]"},
      {"[[1}]", "[null]"},
      {"[\"]", "[null]"},
      {"[\"a]", "[null]"},
      {"[{]", "[null]"},
      {"[[]", "[null]"},
  });
}

TEST(Values, TellTheirTypeByTheirFirstByte) {
  expectTold({
      {"[null,Null,nul,NULL,n]", "[null,null,null,null,null]"},
      {"[true,True,tru,truex]", "[true,null,null,null]"},
      {"[false,False,fals]", "[false,null,null]"},
      {"[1.50,007,-0,+5,0x1F,.5,1e5]", "[1.50,007,-0,+5,0x1F,.5,1e5]"},
      {"[1a,x,-,08,~]", "[null,null,null,null,null]"},
      {R"(["a"b,"a""b"])", "[null,\"a\"\"b\"]"},
      {"[[1]x,{}x]", "[null,null]"},
  });
}

TEST(Comments, AreKeptInFrontOfValuesOnly) {
  EXPECT_EQ(JSONWorker::parse("/*c*/{\"a\":1}").get_comment(), "c");
  EXPECT_EQ(JSONWorker::parse("#x\n{\"a\":1}").get_comment(), "x");
  EXPECT_EQ(JSONWorker::parse("//a\n#b\n/*c\nd*/[]").get_comment(), "a\nb\nc\nd");
  EXPECT_EQ(JSONWorker::parse("/**//*b*/[]").get_comment(), "\nb");
  JSONNode root = JSONWorker::parse("{/*m*/\"a\":[/*e*/1,/*f*//*g*/2],\"b\":/*v*/1,\"c\":1/*w*/}");
  EXPECT_EQ(root["a"].get_comment(), "m");
  EXPECT_EQ(root["a"][0U].get_comment(), "e");
  EXPECT_EQ(root["a"][1U].get_comment(), "f\ng");
  EXPECT_EQ(told(root), "{a=[1,2],b=null,c=null}");
  expectTold({
      {"{/*a:b*/\"k\":1}", "{=null}"},  // a colon in a comment is a colon
      {"{\"k\":1,/*c*/}", "null"},
      {"[/*a:b*/1]", "null"},
      {"[/*a#b*/1]", "[null]"},
  });
}

TEST(Strings, AreUnescapedByteByByte) {
  const std::vector<Case> cases{
      {R"(\"\/\\\b\f\n\r\t\v)", "\"/\\\b\f\n\r\t\v"},
      {"\\\x01", "\""},
      {"a\\u00e9", "a\xE9"},
      {"\\u20AC!", "\xAC!"},
      {"\\uZZ41", "A"},
      {"\\u00e", "\0"s + "00e"},
      {"\\u", "\0"s},
      {"\\x41 ", "A "},
      {"\\x41", "\0"s + "41"},
      {"\\x", "\0"s},
      {"\\101 ", "A "},
      {"\\101", "\0"s + "01"},
      {"\\0", "\0"s},
      {"\\777.", "\xFF."},
      {"\\8\\q\\ ", "8q "},
      {"\\xG1.", "\x01."},
      {"\\u00g1", "\x01"},
      {"\\18z.", "\x40."},
      {"a\\", "a"},
      {"\\", ""},
      {"\\\\\\n\\\\n", "\\\n\\n"},
      {"", ""},
  };
  for (const Case& c : cases) {
    bool hadEscape = false;
    EXPECT_EQ(JSONWorker::FixString(c.text, hadEscape), c.told) << c.text;
    EXPECT_EQ(hadEscape, c.text.find('\\') != std::string::npos);
  }
  expectTold({
      {R"({"a":"\u00e9"})", "{a=\"\xE9\"}"},
      {R"({"a":"x\"y"})", "{a=\"x\"y\"}"},
      {R"({"a\"\u0041":1})", "{a\"A=1}"},
      {"{/*c#a\\b*/x:1}", "{\b#=1}"},  // an escape in a comment that ends too early
  });
}

TEST(Lookup, IsExactAndTakesTheFirst) {
  JSONNode root = JSONWorker::parse(R"({"certificate":1,"A":2,"a":3,"a":4,"l":[5]})");
  EXPECT_THROW(static_cast<void>(root.at("Certificate")), std::out_of_range);
  EXPECT_EQ(root["a"].as_int(), 3);
  EXPECT_EQ(root.at_nocase("CERTIFICATE").as_int(), 1);
  EXPECT_EQ(root.at_nocase("a").as_int(), 2);
  EXPECT_EQ(root["l"][""].as_int(), 5);  // elements have empty names
  EXPECT_EQ(root["l"].as_string(), "");
  EXPECT_THROW(static_cast<void>(root["a"].at("x")), std::out_of_range);
  EXPECT_THROW(static_cast<void>(root.at(5U)), std::out_of_range);
  EXPECT_THROW(static_cast<void>(root.at_nocase("certificat")), std::out_of_range);
  EXPECT_EQ(root.find("x"), root.end());
  EXPECT_EQ(root.find("a") - root.begin(), 2);
  EXPECT_EQ(root.find_nocase("a") - root.begin(), 1);
  try {
    static_cast<void>(root.at("x"));
  } catch (const std::out_of_range& fault) {
    EXPECT_STREQ(fault.what(), "");
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
  EXPECT_FALSE(JSONValidator::isValidRoot(text));

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
