// What a body says when it is asked: lookup, conversions, equality.

#include <algorithm>
#include <vector>

#include "json/_internal/Source/internalJSONNode.h"

JSONNode** internalJSONNode::at(std::string_view key) {
  Fetch();
  if (!isContainer()) {
    return nullptr;
  }
  for (JSONNode*& child : *children) {
    if (json_detail::equalNames(JSONNodeAccess::body(*child).name.view(), key)) {
      return &child;
    }
  }
  return nullptr;
}

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

double internalJSONNode::numericValue() {
  Fetch();
  if (type == JSON_STRING) {
    value = NumberToString::_atof(text.view());
  }
  return type == JSON_NULL ? 0 : value;
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
