// What a body says when it is read: decoding its source text, conversions, lookup, equality.

#include <algorithm>
#include <vector>

#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/JSONWorker.h"
#include "json/_internal/Source/internalJSONNode.h"

void internalJSONNode::FetchOther() {
  if (type == JSON_ARRAY) {
    FetchArray();
  } else if (type == JSON_NODE) {
    FetchNode();
  } else {
    Nullify();
  }
}

void internalJSONNode::FetchArray() {
  const std::string_view whole = text.view();
  if (whole.size() < 2 || whole.front() != '[' || whole.back() != ']') {
    Nullify();
    return;
  }
  JSONWorker::DoArray(*this, whole);
  if (type == JSON_ARRAY) {
    text.clear();
  }
}

void internalJSONNode::FetchNode() {
  const std::string_view whole = text.view();
  if (whole.size() < 2 || whole.front() != '{' || whole.back() != '}') {
    Nullify();
    return;
  }
  JSONWorker::DoNode(*this, whole);
  if (type == JSON_NODE) {
    text.clear();
  }
}

JSONNode** internalJSONNode::childNamed(std::string_view key) const {
  for (JSONNode*& child : *children) {
    const std::string_view childName = JSONNodeAccess::body(*child).name.view();
    if (childName.size() == key.size() &&
        json_detail::equalBytes(childName.data(), key.data(), key.size())) {
      return &child;
    }
  }
  return nullptr;
}

void internalJSONNode::FetchNow() { Fetch(); }

JSONNode** internalJSONNode::at_nocase(std::string_view key) {
  Fetch();
  if (!isContainer()) {
    return nullptr;
  }
  JSONNode** const found = std::find_if(children->begin(), children->end(), [key](JSONNode* child) {
    return AreEqualNoCase(JSONNodeAccess::body(*child).name.view(), key);
  });
  return found == children->end() ? nullptr : found;
}

JSONNode* internalJSONNode::at(unsigned int index) {
  Fetch();
  return index < size() ? children->array[index] : nullptr;
}

internalJSONNode::operator bool() {
  Fetch();
  switch (type) {
    case JSON_NULL:
      return false;
    case JSON_STRING:
      return !text.view().empty();
    case JSON_ARRAY:
    case JSON_NODE:
      return size() != 0;
    default:
      return value != 0;
  }
}

internalJSONNode::operator unsigned long long() {
  return NumberToString::truncateUnsigned(numericValue());
}

internalJSONNode::operator long double() { return numericValue(); }

bool internalJSONNode::AreEqualNoCase(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [lower](char a, char b) { return lower(a) == lower(b); });
}

bool internalJSONNode::isEqualApartFromChildren(internalJSONNode& other) {
  Fetch();
  other.Fetch();
  if (type != other.type || name.view() != other.name.view() || size() != other.size()) {
    return false;
  }
  switch (type) {
    case JSON_STRING:
      return text.view() == other.text.view();
    case JSON_NUMBER:
    case JSON_BOOL:
      return value == other.value;
    default:
      return true;
  }
}

bool internalJSONNode::IsEqualTo(internalJSONNode& other) {
  std::vector<std::pair<internalJSONNode*, internalJSONNode*>> open{{this, &other}};
  while (!open.empty()) {
    const auto [left, right] = open.back();
    open.pop_back();
    if (left == right) {
      continue;
    }
    if (!left->isEqualApartFromChildren(*right)) {
      return false;
    }
    for (unsigned int i = 0; i < left->size(); ++i) {
      open.emplace_back(&JSONNodeAccess::body(*left->children->array[i]),
                        &JSONNodeAccess::body(*right->children->array[i]));
    }
  }
  return true;
}
