#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "json/_internal/Source/internalJSONNode.h"
#include "json/json.h"

namespace {

using namespace std::string_literals;

JSONNode numbers(int first, int last) {
  JSONNode list(JSON_ARRAY);
  for (int i = first; i <= last; ++i) list.push_back(JSONNode("", i));
  return list;
}

unsigned int capacity(const JSONNode& node) {
  return JSONNodeAccess::body(node).children->capacity;
}

TEST(Growth, GoesBySteps) {
  EXPECT_EQ(capacity(JSONNode(JSON_NODE)), 0U);
  for (const int last : {1, 8, 9}) EXPECT_EQ(capacity(numbers(1, last)), last < 9 ? 8U : 16U);
  JSONNode parsed = JSONWorker::parse("[1,2,3,4,5,6,7,8,9]");
  parsed.erase(parsed.begin(), parsed.end());
  EXPECT_EQ(capacity(parsed), 16U);  // never shrinks

  using Three = std::array<unsigned int, 3>;
  for (const auto& [reserved, more, expected] :
       {Three{0, 0, 0}, Three{0, 3, 8}, Three{0, 20, 20}, Three{8, 7, 8}, Three{8, 8, 8},
        Three{8, 9, 16}, Three{3, 10, 12}, Three{8, 0, 8}}) {
    jsonChildren children;
    jsonChildren::reserve2(children, reserved);
    EXPECT_EQ(children.capacity, reserved);
    children.inc(more);
    EXPECT_EQ(children.capacity, expected) << reserved << '+' << more;
  }
  jsonChildren children;
  jsonChildren::reserve2(children, 5);
  children.size = 5;
  jsonChildren::reserve2(children, 4);
  EXPECT_EQ(children.capacity, 5U);
  jsonChildren::reserve2(children, 7);  // room for two more than are there
  EXPECT_EQ(children.capacity, 10U);
  EXPECT_THROW(children.inc(0xFFFFFFFFU), std::bad_alloc);
  EXPECT_THROW(children.inc(0xFFFFFFF0U), std::bad_alloc);  // no doubling leads there
}

TEST(Iterators, WalkBothWays) {
  JSONNode list = numbers(1, 5);
  const JSONNode& constant = list;
  std::string seen;
  std::for_each(list.rbegin(), list.rend(), [&](JSONNode& n) { seen += n.as_string(); });
  for (JSONNode::reverse_const_iterator it = constant.rbegin(); it < constant.rend(); it += 2) {
    seen += (*it).as_string();
  }
  EXPECT_EQ(seen, "54321531");
  JSONNode::const_iterator converted = list.begin();
  EXPECT_EQ((2 + converted)[1].as_int(), 4);
  EXPECT_EQ(constant.end() - converted, 5);
  EXPECT_EQ((converted++)->as_int(), 1);
  EXPECT_EQ((converted--)->as_int(), 2);
  EXPECT_EQ(converted, constant.begin());
  JSONNode scalar("n", 1);
  EXPECT_TRUE(scalar.begin() == scalar.find_nocase(""));
}

template <typename Place>
std::string told(Place place) {
  return place->name() + place->as_string() + ' ';
}

std::size_t shares(const JSONNode& node) { return JSONNodeAccess::body(node).refcount; }

// What an operation does to a node, the place it returns in front, and that the other handle of the
// same body sees nothing of it.
TEST(Operations, ChangeThisHandleOnly) {
  using N = JSONNode;
  static const N from = numbers(7, 9);
  const std::string text = R"({"a":1,"B":2,"b":3,"l":[true]})";
  struct Row {
    std::string (*change)(N&);
    std::string result;
  };
  const Row rows[] = {
      {[](N& n) { return n.push_back(N("x", 4)), ""s; }, R"({"a":1,"B":2,"b":3,"l":[true],"x":4})"},
      {[](N& n) { return n.push_front(N("x/", "y/")), ""s; },
       R"({"x\/":"y\/","a":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return n.set_name("x"), n.name(); }, "x" + text},
      {[](N& n) { return n.set_comment("x"), n.get_comment(); }, "x" + text},
      {[](N& n) { return n.reserve(100), ""s; }, text},
      {[](N& n) { return n.cast(JSON_ARRAY), ""s; }, "[1,2,3,[true]]"},
      {[](N& n) { return n.pop_back("b").as_string(); }, R"(3{"a":1,"B":2,"l":[true]})"},
      {[](N& n) { return n.pop_back_nocase("b").as_string(); }, R"(2{"a":1,"b":3,"l":[true]})"},
      {[](N& n) { return n.pop_back(3U).name(); }, R"(l{"a":1,"B":2,"b":3})"},
      {[](N& n) { return n["a"].set_name("x"), ""s; }, R"({"x":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return n[0U].set_name("x"), ""s; }, R"({"x":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return n.at("a").set_name("x"), ""s; }, R"({"x":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return n.at(0U).set_name("x"), ""s; }, R"({"x":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return n.at_nocase("b").set_name("x"), ""s; },
       R"({"a":1,"x":2,"b":3,"l":[true]})"},
      {[](N& n) { return n.find("b")->set_name("x"), ""s; }, R"({"a":1,"B":2,"x":3,"l":[true]})"},
      {[](N& n) { return n.find_nocase("b")->cast(JSON_NULL), ""s; },
       R"({"a":1,"B":null,"b":3,"l":[true]})"},
      {[](N& n) { return n.rbegin()->cast(JSON_NULL), ""s; }, R"({"a":1,"B":2,"b":3,"l":null})"},
      {[](N& n) { return told(n.erase(n.begin())); }, R"(B2 {"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return told(n.erase(n.begin() + 1, n.begin() + 3)); }, R"(l {"a":1,"l":[true]})"},
      {[](N& n) { return told(n.erase(n.rbegin())); }, R"(b3 {"a":1,"B":2,"b":3})"},
      {[](N& n) { return told(n.erase(n.rbegin() + 1, n.rbegin() + 3)); },
       R"(a1 {"a":1,"l":[true]})"},
      {[](N& n) { return n.erase(n.end(), n.end()) == n.end() ? ""s : "not the end"; }, text},
      {[](N& n) { return told(n.insert(n.begin() + 1, n.begin(), n.begin())); }, "B2 " + text},
      {[](N& n) {
         return told(n.insert(n.begin() + 1, from.begin(), from.end())).append(capacity(n), '.');
       },
       R"(7 ........{"a":1,"":7,"":8,"":9,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return told(n.insert(n.begin() + 1, from.rbegin(), from.rend())); },
       R"(9 {"a":1,"":9,"":8,"":7,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return told(n.insert(n.rbegin() + 1, from.begin(), from.end())); },
       R"(7 {"a":1,"B":2,"b":3,"":9,"":8,"":7,"l":[true]})"},
      {[](N& n) { return told(n.insert(n.rbegin() + 1, from.rbegin(), from.rend())); },
       R"(9 {"a":1,"B":2,"b":3,"":7,"":8,"":9,"l":[true]})"},
      {[](N& n) { return told(n.insert(n.end(), N("x", 4))); },
       R"(x4 {"a":1,"B":2,"b":3,"l":[true],"x":4})"},
      {[](N& n) { return told(n.insert(n.rend(), N("x", 4))); },
       R"(x4 {"x":4,"a":1,"B":2,"b":3,"l":[true]})"},
      {[](N& n) { return told(n.insert(n.begin() + 1, n.begin(), n.begin() + 2)); },
       R"(a1 {"a":1,"a":1,"B":2,"B":2,"b":3,"l":[true]})"},
      {[](N& n) {
         N others[] = {JSONWorker::parse("[5,6]"), N("n", 1), numbers(7, 7)};
         const N sharer = others[0];
         N* const list[] = {&others[0], nullptr, &others[1], &others[2], &n};
         n.merge(5, list);
         return others[0].write() + sharer.write() + others[1].as_string();
       },
       R"([][5,6]1{"a":1,"B":2,"b":3,"l":[true],"":5,"":6,"":7})"},
      {[](N& n) {
         N other = JSONWorker::parse("[5,6,7,8,9,10,11]");
         other.merge(&n);
         return std::to_string(capacity(other)) + other.write();
       },
       "16[5,6,7,8,9,10,11,1,2,3,[true]]{}"},
  };
  for (const Row& row : rows) {
    JSONNode node = JSONWorker::parse(text);
    const JSONNode copy = node;
    EXPECT_EQ(node.size() + shares(node), 4U + 2U);  // reading shares on
    const std::string place = row.change(node);
    EXPECT_EQ(place + node.write(), row.result) << &row - rows;
    EXPECT_EQ(copy.write() + copy.name() + copy.get_comment(), text) << &row - rows;
    EXPECT_EQ(shares(copy) + shares(std::as_const(copy)[3U]), 2U) << &row - rows;  // a deep copy
  }
  // A node may be appended to a copy of itself.
  JSONNode node = numbers(1, 2);
  node.push_back(node);
  EXPECT_EQ(node.write(), "[1,2,[1,2]]");
}

TEST(Operations, RefusePlacesThatAreNotTheirs) {
  using N = JSONNode;
  static N other = numbers(1, 2);
  void (*const refused[])(N&) = {
      [](N& n) { n.erase(n.end()); },
      [](N& n) { n.erase(n.rend()); },
      [](N& n) { n.erase(n.end(), n.begin()); },
      [](N& n) { n.erase(other.begin()); },
      [](N& n) { n.insert(n.begin(), other.end(), other.begin()); },
      [](N& n) { n[0U].insert(n[0U].begin(), other[0U]); },
      [](N& n) { n.pop_back(2U); },
      [](N& n) { n.pop_back("x"); },
      [](N& n) { n.pop_back_nocase("x"); },
      [](N& n) { std::ignore = std::as_const(n).at("x"); },
      [](N& n) { std::ignore = std::as_const(n).at_nocase("x"); },
      [](N& n) { std::ignore = std::as_const(n).at(2U); },
      [](N& n) { std::ignore = std::as_const(n)[0U].at(""); },
  };
  for (const auto& change : refused) {
    JSONNode list = numbers(1, 3);
    list.pop_back(2U);
    try {
      change(list);
      ADD_FAILURE() << &change - refused;
    } catch (const std::out_of_range& fault) {
      EXPECT_STREQ(fault.what(), "");
    }
    EXPECT_EQ(list.write(), "[1,2]");
  }
  JSONNode scalar("n", 1);
  scalar.push_back(other);
  scalar.push_front(other);
  EXPECT_EQ(scalar.as_string(), "1");
  // A place found before the body was shared still names the same child.
  const auto place = other.begin() + 1;
  const JSONNode copy = other;
  const auto after = other.erase(place);
  EXPECT_EQ(after, other.end());
  EXPECT_EQ(copy.write() + other.write(), "[1,2][1]");
}

}  // namespace
