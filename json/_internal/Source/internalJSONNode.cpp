// The life of a body: making, copying, ending, changing.

#include "json/_internal/Source/internalJSONNode.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "json/_internal/Source/JSONSingleton.h"

using json_detail::FreeList;

inline internalJSONNode::Standalone* internalJSONNode::standalone(internalJSONNode* body) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): its home says what it is
  return static_cast<Standalone*>(body);
}

inline void internalJSONNode::destroyOne(internalJSONNode* body) noexcept {
  if (body->home == Home::kOwn) {
    Recycled::destroy(standalone(body));
    return;
  }
  const json_detail::JSONSource memory = std::move(body->source);  // outlives the body
  body->~internalJSONNode();
  json_detail::forbidUse(body, sizeof *body);
}

std::span<char> internalJSONNode::nameRoom() {
  return home == Home::kOwn ? std::span<char>(standalone(this)->nameRoom) : std::span<char>();
}

std::span<char> internalJSONNode::textRoom() {
  return home == Home::kOwn ? std::span<char>(standalone(this)->textRoom) : std::span<char>();
}

void internalJSONNode::makeChildren() { children.reset(FreeList<jsonChildren>::make()); }

internalJSONNode* internalJSONNode::newInternal(char type) {
  auto code = static_cast<unsigned char>(type);
  code = code <= JSON_NODE ? code : static_cast<unsigned char>(JSON_NULL);
  JSONNode owner = JSONNodeAccess::adopt(Recycled::make(code, true));
  internalJSONNode& body = JSONNodeAccess::body(owner);
  // Empty values are written as valid JSON: an empty number is 0, an empty bool is false.
  switch (body.type) {
    case JSON_NULL:
      body.text.borrow(jsonSingletonCONST_NULL());
      break;
    case JSON_NUMBER:
      body.text.borrow("0");
      break;
    case JSON_BOOL:
      body.text.borrow(jsonSingletonCONST_FALSE());
      break;
    case JSON_ARRAY:
    case JSON_NODE:
      body.makeChildren();
      break;
    default:
      break;
  }
  return JSONNodeAccess::release(std::move(owner));
}

internalJSONNode* internalJSONNode::newScalar(char type, std::string_view name,
                                              std::string_view text, double value) {
  JSONNode owner = JSONNodeAccess::adopt(Recycled::make(static_cast<unsigned char>(type), true));
  internalJSONNode& body = JSONNodeAccess::body(owner);
  body.SetName(name);
  type == JSON_BOOL ? body.text.borrow(text) : body.text.assign(text, body.textRoom());
  body.textEncoded = type == JSON_STRING;
  body.value = value;
  return JSONNodeAccess::release(std::move(owner));
}

internalJSONNode* internalJSONNode::copyWithoutChildren(const internalJSONNode& original) {
  JSONNode owner = JSONNodeAccess::adopt(Recycled::make(original.type, original.fetched));
  internalJSONNode& body = JSONNodeAccess::body(owner);
  body.name.copyFrom(original.name, body.nameRoom());
  body.nameEncoded = original.nameEncoded;
  body.text.copyFrom(original.text, body.textRoom());
  body.textEncoded = original.textEncoded;
  body.value = original.value;
  body.comment.copyFrom(original.comment);
  body.source = original.source;
  if (original.isContainer()) {
    body.makeChildren();
    jsonChildren::reserve2(*body.children, original.children->size);
  }
  return JSONNodeAccess::release(std::move(owner));
}

internalJSONNode* internalJSONNode::newInternal(const internalJSONNode& original) {
  JSONNode owner = JSONNodeAccess::adopt(copyWithoutChildren(original));
  struct Pair {
    const internalJSONNode* from;
    internalJSONNode* to;
  };
  std::vector<Pair> open{{&original, &JSONNodeAccess::body(owner)}};
  while (!open.empty()) {
    const Pair pair = open.back();
    open.pop_back();
    if (pair.from->size() == 0) {
      continue;
    }
    for (const JSONNode* child : *pair.from->children) {
      const internalJSONNode& childBody = JSONNodeAccess::body(*child);
      internalJSONNode* const copy = copyWithoutChildren(childBody);
      // The slot is reserved, so appending cannot fail and the copy has its owner at once.
      pair.to->children->append(JSONNode::newJSONNode(JSONNodeAccess::adopt(copy)));
      open.push_back({&childBody, copy});
    }
  }
  return JSONNodeAccess::release(std::move(owner));
}

// What ends and still has children waits in a list instead of on the call
// stack: no tree is too deep to be released.
void internalJSONNode::deleteInternal(internalJSONNode* body) noexcept {
  internalJSONNode* ended = body;
  while (ended != nullptr) {
    internalJSONNode* const current = std::exchange(ended, ended->nextEnded);
    if (current->children != nullptr) {
      for (JSONNode* const handle : *current->children) {
        internalJSONNode* const child = JSONNodeAccess::release(std::move(*handle));
        JSONNode::deleteJSONNode(handle);
        if (child == nullptr || --child->refcount != 0) {
          continue;
        }
        if (child->children != nullptr && child->children->size != 0) {
          child->nextEnded = std::exchange(ended, child);
        } else {
          destroyOne(child);
        }
      }
    }
    destroyOne(current);
  }
}

internalJSONNode* internalJSONNode::detachedCopy() {
  internalJSONNode* const copy = newInternal(*this);
  --refcount;
  return copy;
}

void internalJSONNode::Nullify() {
  type = JSON_NULL;
  text.borrow(jsonSingletonCONST_NULL());
  fetched = true;
}

void internalJSONNode::becomeScalar(unsigned char newType) {
  if (children != nullptr) {
    children->releaseAll();
    children.reset();
  }
  type = newType;
  textEncoded = newType == JSON_STRING;
  fetched = true;
}

void internalJSONNode::becomeContainer(unsigned char newType) {
  if (children == nullptr) {
    makeChildren();
  } else if (!isContainer()) {
    children->releaseAll();  // left over from before the body became null
  }
  text.clear();
  value = 0;
  type = newType;
  fetched = true;
}

void internalJSONNode::Set(std::string_view newText) {
  text.assign(newText, textRoom());
  becomeScalar(JSON_STRING);
}

void internalJSONNode::Set(bool truth) {
  text.borrow(truth ? jsonSingletonCONST_TRUE() : jsonSingletonCONST_FALSE());
  value = truth ? 1 : 0;
  becomeScalar(JSON_BOOL);
}

void internalJSONNode::Set(long double number) {
  SetNumber(static_cast<double>(number), NumberToString::_ftoa(number));
}

void internalJSONNode::SetNumber(double number, std::string_view digits) {
  text.assign(digits, textRoom());
  value = number;
  becomeScalar(JSON_NUMBER);
}

void internalJSONNode::SetName(std::string_view newName) {
  name.assign(newName, nameRoom());
  nameEncoded = true;
}

void internalJSONNode::Cast(char newType) {
  switch (newType) {
    case JSON_STRING:
      Set(std::string(AsText()));
      break;
    case JSON_NUMBER: {
      const double number = numericValue();
      const auto whole = NumberToString::truncate<long long>(number);
      if (!std::isfinite(number)) {
        Cast(JSON_NULL);  // JSON has no number for it
      } else if (static_cast<double>(whole) == number) {
        Set(whole);
      } else {
        Set(number);
      }
      break;
    }
    case JSON_BOOL:
      Set(static_cast<bool>(*this));
      break;
    case JSON_ARRAY:
      becomeContainer(JSON_ARRAY);
      for (JSONNode* element : *children) {
        element->set_name({});  // elements have no names
      }
      break;
    case JSON_NODE:
      becomeContainer(JSON_NODE);
      break;
    default:
      becomeScalar(JSON_NULL);
      Nullify();
      break;
  }
}

void internalJSONNode::push_front(JSONNode&& child) {
  push_back(std::move(child));
  if (isContainer()) {
    std::rotate(children->begin(), children->end() - 1, children->end());
  }
}
