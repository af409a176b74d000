#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "json/json.h"

namespace {

TEST(Validator, AcceptsWellFormedText) {
  for (const std::string_view text :
       {"{}", "[]", R"({"a":1,"b":[true,false,null,"x",-1.5e3,{}]})", R"([[],[[]],{"":""}])",
        R"(["\"\\\/\b\f\n\r\t\v\u00e9\x41\101"])", "#c#{#d##e#\"a\":1}", "[#c#1]",
        "[\"\\\x01\xC3\xB1\"]"}) {
    EXPECT_TRUE(JSONValidator::isValidRoot(text)) << text;
    EXPECT_FALSE(JSONValidator::isValidRoot(std::string(text) + "x")) << text;
    EXPECT_TRUE(JSONValidator::isValidPartialRoot(std::string(text) + "[x")) << text;
    for (std::size_t cut = 0; cut < text.size(); ++cut) {
      EXPECT_FALSE(JSONValidator::isValidPartialRoot(text.substr(0, cut))) << text << cut;
    }
  }
}

TEST(Validator, RefusesEverythingElse) {
  for (const std::string_view text :
       {"", "1", "\"a\"", "[1,]", "[,1]", "[1 2]", "[tru]", "[nul]", "[True]", "[01x]", "[-]",
        "[1}", "{]", "[[]", "#{}", "[1#c#]"}) {
    EXPECT_FALSE(JSONValidator::isValidRoot(text)) << text;
  }
  for (const std::string_view text :
       {"{1}", "{a:1}", "{,}", R"({"a"})", R"({"a" :1})", R"({"a":1,})", R"({"a":#c#1})",
        R"(["\q"])", R"(["\u000g"])", R"(["\x4"])", R"(["\108"])", R"(["\18 ])", "[\"]"}) {
    EXPECT_FALSE(JSONValidator::isValidRoot(text)) << text;
  }
}

TEST(Validator, TakesPartsFromTheFront) {
  std::string_view text = R"("a":1,"b":[2]}1,2]name":"v",0x1F])";
  EXPECT_TRUE(JSONValidator::isValidObject(text, 1));
  EXPECT_TRUE(JSONValidator::isValidArray(text, 1));
  EXPECT_TRUE(JSONValidator::isValidNamedObject(text, 1));
  EXPECT_EQ(text, ",0x1F]");
  text.remove_prefix(1);
  EXPECT_TRUE(JSONValidator::isValidNumber(text));
  EXPECT_EQ(text, "]");
}

TEST(Validator, StopsAtADepthThatTheStackStands) {
  for (const auto& [open, close] : {std::pair("[", "]"), std::pair("{\"\":", "}")}) {
    std::string text = "[]";
    for (int depth = 1; depth != 512; ++depth) text = open + text + close;
    EXPECT_TRUE(JSONValidator::isValidRoot(text));
    EXPECT_FALSE(JSONValidator::isValidRoot(open + text + close));
  }
}

}  // namespace
