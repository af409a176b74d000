#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <string>

#include "json/_internal/Source/internalJSONNode.h"
#include "json/json.h"

namespace {

JSONNode numbers(int first, int last) {
  JSONNode list(JSON_ARRAY);
  for (int i = first; i <= last; ++i) {
    list.push_back(JSONNode("", i));
  }
  return list;
}

unsigned int capacity(const JSONNode& node) {
  return JSONNodeAccess::body(node).children->capacity;
}

TEST(Growth, GoesBySteps) {
  JSONNode node(JSON_NODE);
  EXPECT_EQ(capacity(node), 0U);
  for (const unsigned int expected : {8U, 8U, 8U, 8U, 8U, 8U, 8U, 8U, 16U}) {
    node.push_back(JSONNode("n", 1));
    EXPECT_EQ(capacity(node), expected);
  }
  JSONNode parsed = JSONWorker::parse("[1,2,3,4,5,6,7,8,9]");
  EXPECT_EQ(parsed.size(), 9U);
  EXPECT_EQ(capacity(parsed), 16U);
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
  EXPECT_EQ(converted, constant.begin());
  EXPECT_EQ((converted + 2)[1].as_int(), 4);
  EXPECT_EQ(constant.end() - converted, 5);
  EXPECT_EQ((converted++)->as_int() + (--converted)->as_int(), 2);
  const auto even =
      std::find_if(list.begin(), list.end(), [](const JSONNode& n) { return n.as_int() % 2 == 0; });
  EXPECT_EQ(even->as_int(), 2);
  JSONNode scalar("n", 1);
  EXPECT_TRUE(scalar.begin() == scalar.end());
}

TEST(Erase, LeavesTheFollowingChildAtThePlace) {
  JSONNode list = numbers(0, 9);
  const auto told = [&list](auto place) { return place->as_string() + " in " + list.write(); };
  EXPECT_EQ(told(list.erase(list.begin() + 2)), "3 in [0,1,3,4,5,6,7,8,9]");
  EXPECT_EQ(told(list.erase(list.begin() + 1, list.begin() + 4)), "5 in [0,5,6,7,8,9]");
  EXPECT_EQ(told(list.erase(list.rbegin())), "8 in [0,5,6,7,8]");
  EXPECT_EQ(told(list.erase(list.rbegin() + 1, list.rbegin() + 3)), "5 in [0,5,8]");
  EXPECT_EQ(list.erase(list.end(), list.end()), list.end());
  auto behind = list.erase(list.end() - 1);
  EXPECT_EQ(behind, list.end());
  JSONNode other = numbers(1, 2);
  EXPECT_THROW(list.erase(list.end()), std::out_of_range);
  EXPECT_THROW(list.erase(list.rend()), std::out_of_range);
  EXPECT_THROW(list.erase(list.end(), list.begin()), std::out_of_range);
  EXPECT_THROW(list.erase(other.begin()), std::out_of_range);
  // A place found before the body was shared still names the same child.
  const auto place = list.begin() + 1;
  const JSONNode copy = list;
  behind = list.erase(place);
  EXPECT_EQ(behind, list.end());
  EXPECT_EQ(copy.write() + list.write(), "[0,5][0]");
}

TEST(Insert, PutsRangesInTheOrderOfThePlace) {
  const JSONNode from = numbers(1, 3);
  JSONNode list;
  const auto fresh = [&list]() -> JSONNode& { return list = numbers(7, 8); };
  const auto told = [&list](auto place) { return place->as_string() + " in " + list.write(); };
  EXPECT_EQ(told(fresh().insert(list.begin() + 1, from.begin(), from.end())), "1 in [7,1,2,3,8]");
  EXPECT_EQ(told(fresh().insert(list.begin() + 1, from.rbegin(), from.rend())), "3 in [7,3,2,1,8]");
  EXPECT_EQ(told(fresh().insert(list.rbegin() + 1, from.begin(), from.end())), "1 in [7,3,2,1,8]");
  EXPECT_EQ(told(fresh().insert(list.rbegin() + 1, from.rbegin(), from.rend())),
            "3 in [7,1,2,3,8]");
  EXPECT_EQ(told(fresh().insert(list.rbegin() + 1, from[1U])), "2 in [7,2,8]");
  EXPECT_EQ(told(fresh().insert(list.rend(), from[0U])), "1 in [1,7,8]");
  EXPECT_EQ(told(fresh().insert(list.begin() + 1, list.begin(), list.end())), "7 in [7,7,8,8]");
  EXPECT_THROW(list.insert(list.begin(), from.end(), from.begin()), std::out_of_range);
  JSONNode scalar("n", 1);
  EXPECT_THROW(scalar.insert(scalar.begin(), from[0U]), std::out_of_range);
}

TEST(TakingOut, ReturnsTheChild) {
  JSONNode node = JSONWorker::parse(R"({"a":1,"B":2,"b":3,"c":4})");
  EXPECT_EQ(node.pop_back("b").as_int(), 3);
  EXPECT_EQ(node.pop_back_nocase("b").as_int(), 2);
  EXPECT_EQ(node.pop_back(1U).name(), "c");
  EXPECT_THROW(node.pop_back(1U), std::out_of_range);
  EXPECT_THROW(node.pop_back("b"), std::out_of_range);
  EXPECT_THROW(node.pop_back_nocase("b"), std::out_of_range);
  node.push_front(JSONNode("z", 0));
  EXPECT_EQ(node.write(), R"({"z":0,"a":1})");
  JSONNode scalar("n", 1);
  scalar.push_back(node);
  scalar.push_front(node);
  EXPECT_EQ(scalar.as_string(), "1");
}

TEST(Merge, MovesTheChildrenAndSparesWhoSharesThem) {
  JSONNode target = JSONWorker::parse(R"({"a":1})");
  JSONNode one = JSONWorker::parse(R"({"a":2,"b":3})");
  const JSONNode sharer = one;
  target.merge(one);
  EXPECT_EQ(target.write(), R"({"a":1,"a":2,"b":3})");
  EXPECT_EQ(one.write(), "{}");
  EXPECT_EQ(sharer.write(), R"({"a":2,"b":3})");
  JSONNode two = numbers(5, 6);
  JSONNode scalar("n", 1);
  JSONNode* const list[] = {&two, nullptr, &scalar, &target};
  target.merge(4, list);
  EXPECT_EQ(target.write(), R"({"a":1,"a":2,"b":3,"":5,"":6})");
  EXPECT_EQ(scalar.as_int(), 1);
  JSONNode twin = numbers(1, 2);
  JSONNode other = twin;
  twin.merge(&other);
  EXPECT_EQ(twin.write() + other.write(), "[1,2,1,2][]");
}

}  // namespace
