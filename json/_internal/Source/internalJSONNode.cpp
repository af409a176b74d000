#include "json/_internal/Source/internalJSONNode.h"

#include <cmath>
#include <vector>

#include "json/_internal/Source/JSONSingleton.h"

using json_detail::FreeList;

[[gnu::always_inline]] inline void internalJSONNode::dropChildren(internalJSONNode& body) noexcept {
  if (jsonChildren* const old = std::exchange(body.children, nullptr); old != nullptr) {
    if (old->size != 0) {
      old->releaseAll();
    }
    const bool isInSource = old->isInSource;
    old->~jsonChildren();
    if (!isInSource) {
      FreeList<jsonChildren>::give(old);
    }
  }
}

[[gnu::always_inline]] inline void internalJSONNode::destroyOne(internalJSONNode* body) noexcept {
  if (body->children != nullptr) {
    dropChildren(*body);
  }
  if (!body->isHandleTaken) {
    body->giveMemory();
    return;
  }
  body->name.clear();
  body->text.clear();
  body->comment.clear();
  if (!body->isInSource) {
    body->source = json_detail::JSONSource();  // a document is not kept for the handle alone
  }
  body->isEnded = true;
}

void internalJSONNode::makeChildren() {
  children = ::new (FreeList<jsonChildren>::take()) jsonChildren();
}

internalJSONNode* internalJSONNode::newInternal(char type) {
  const auto code = static_cast<unsigned char>(type);
  JSONNode owner = JSONNodeAccess::adopt(make(code <= JSON_NODE ? code : JSON_NULL, true));
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
  JSONNode owner = JSONNodeAccess::adopt(make(static_cast<unsigned char>(type), true));
  internalJSONNode& body = JSONNodeAccess::body(owner);
  body.SetName(name);
  body.text.assign(text, body.textRoom());
  body.textEncoded = type == JSON_STRING;
  body.value = value;
  return JSONNodeAccess::release(std::move(owner));
}

internalJSONNode* internalJSONNode::newSlice(char type, std::string_view name,
                                             std::string_view value,
                                             const json_detail::JSONSource& source) {
  const bool isFetched = type == JSON_NULL || type == JSON_BOOL;
  JSONNode owner = JSONNodeAccess::adopt(make(static_cast<unsigned char>(type), isFetched));
  internalJSONNode& body = JSONNodeAccess::body(owner);
  body.name.borrow(name);
  body.text.borrow(type == JSON_NULL ? jsonSingletonCONST_NULL() : value);
  body.source = source;
  if (body.isContainer()) {
    body.makeChildren();
  } else if (type == JSON_BOOL) {
    body.value = value.front() == 't' ? 1 : 0;
  }
  return JSONNodeAccess::release(std::move(owner));
}

internalJSONNode* internalJSONNode::copyWithoutChildren(const internalJSONNode& original) {
  JSONNode owner = JSONNodeAccess::adopt(make(original.type, original.fetched));
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
  std::vector<Pair> open;  // containers whose children are still to be copied
  if (original.size() != 0) {
    open.push_back({&original, &JSONNodeAccess::body(owner)});
  }
  while (!open.empty()) {
    const Pair pair = open.back();
    open.pop_back();
    for (const JSONNode* child : *pair.from->children) {
      const internalJSONNode& childBody = JSONNodeAccess::body(*child);
      internalJSONNode* const copy = copyWithoutChildren(childBody);
      // The slot is reserved, so appending cannot fail and the copy has its owner at once.
      pair.to->children->append(JSONNodeAccess::newHandle(JSONNodeAccess::adopt(copy)));
      if (childBody.size() != 0) {
        open.push_back({&childBody, copy});
      }
    }
  }
  return JSONNodeAccess::release(std::move(owner));
}

/// Releases the children from the last one on. Stops at one that ends here and has children of its
/// own, and returns true then.
[[gnu::always_inline]] inline bool internalJSONNode::dropLeaves(internalJSONNode& body) noexcept {
  if (body.children == nullptr) {
    return false;
  }
  unsigned int left = body.children->size;
  bool stops = false;
  for (; left != 0; --left) {
    JSONNode* const handle = body.children->array[left - 1];
    internalJSONNode* const child = handle->internal;
    // A child that was moved out of the tree has left its handle empty.
    const bool isLast = child != nullptr && --child->refcount == 0;
    stops = isLast && child->children != nullptr && child->children->size != 0;
    if (stops) {
      break;
    }
    if (isLast && child->owns(handle)) {
      // The usual case: body and handle go together.
      if (child->children != nullptr) {
        dropChildren(*child);
      }
      child->giveMemory();
      continue;
    }
    giveHandle(handle);
    if (isLast) {
      destroyOne(child);
    }
  }
  body.children->size = left;
  return stops;
}

// On the way down the handle that led to a body is of no more use as a handle: it remembers the
// way back up, so that no tree is too deep to be released.
void internalJSONNode::deleteInternal(internalJSONNode* body) noexcept {
  const auto lastChild = [](const internalJSONNode& of) {
    return of.children->array[of.children->size - 1];
  };
  internalJSONNode* parent = nullptr;
  for (;;) {
    if (dropLeaves(*body)) {
      JSONNode* const handle = lastChild(*body);
      body = std::exchange(handle->internal, std::exchange(parent, body));
      continue;
    }
    destroyOne(body);
    if (parent == nullptr) {
      return;
    }
    body = parent;
    JSONNode* const handle = lastChild(*body);
    parent = handle->internal;
    giveHandle(handle);
    --body->children->size;
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
  textEncoded = false;
  fetched = true;
}

void internalJSONNode::becomeScalar(unsigned char newType) {
  if (children != nullptr) {
    dropChildren(*this);
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
  textEncoded = false;
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

void internalJSONNode::Cast(char newType) {
  Fetch();
  if (type == static_cast<unsigned char>(newType)) {
    return;
  }
  switch (newType) {
    case JSON_STRING:
      Set(std::string(AsText()));
      break;
    case JSON_NUMBER: {
      const double number = numericValue();
      const long long whole = NumberToString::truncate(number);
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

void internalJSONNode::push_back(JSONNode&& child) {
  Fetch();
  if (isContainer()) {
    children->inc();
    children->append(JSONNodeAccess::newHandle(std::move(child)));
  }
}

void internalJSONNode::push_front(JSONNode&& child) {
  Fetch();
  if (isContainer()) {
    children->inc();
    JSONNode* const handle = JSONNode::newJSONNode(std::move(child));
    children->insert(0, &handle, 1);
  }
}
