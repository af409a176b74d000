// The operations of JSONNode that search, walk and change its children.

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "json/_internal/Source/JSONNode.h"
#include "json/_internal/Source/internalJSONNode.h"

namespace {

JSONNode** firstSlot(internalJSONNode& body) {
  body.Fetch();
  return body.isContainer() ? body.children->begin() : nullptr;
}

JSONNode** endSlot(internalJSONNode& body) {
  body.Fetch();
  return body.isContainer() ? body.children->end() : nullptr;
}

JSONNode** slotOrEnd(internalJSONNode& body, JSONNode** slot) {
  return slot != nullptr ? slot : endSlot(body);
}

}  // namespace

JSONNode::iterator JSONNode::find(std::string_view name) {
  internalJSONNode& body = own();
  return iterator(slotOrEnd(body, body.at(name)));
}

JSONNode::const_iterator JSONNode::find(std::string_view name) const {
  return const_iterator(slotOrEnd(*internal, internal->at(name)));
}

JSONNode::iterator JSONNode::find_nocase(std::string_view name) {
  internalJSONNode& body = own();
  return iterator(slotOrEnd(body, body.at_nocase(name)));
}

JSONNode::const_iterator JSONNode::find_nocase(std::string_view name) const {
  return const_iterator(slotOrEnd(*internal, internal->at_nocase(name)));
}

JSONNode::iterator JSONNode::begin() { return iterator(firstSlot(own())); }

JSONNode::iterator JSONNode::end() { return iterator(endSlot(own())); }

JSONNode::const_iterator JSONNode::begin() const { return const_iterator(firstSlot(*internal)); }

JSONNode::const_iterator JSONNode::end() const { return const_iterator(endSlot(*internal)); }

void JSONNode::push_back(JSONNode child) { own().push_back(std::move(child)); }

void JSONNode::push_front(JSONNode child) { own().push_front(std::move(child)); }

void JSONNode::reserve(unsigned int children) {
  own().Fetch();
  if (internal->isContainer()) {
    jsonChildren::reserve2(*internal->children, children);
  }
}

JSONNode JSONNode::takeOut(unsigned int index) {
  own().Fetch();
  if (index >= internal->size()) {
    throw std::out_of_range("");
  }
  JSONNode* const handle = internal->children->array[index];
  JSONNode child(std::move(*handle));
  deleteJSONNode(handle);
  internal->children->doerase(index, 1);
  return child;
}

JSONNode JSONNode::pop_back(unsigned int index) { return takeOut(index); }

JSONNode JSONNode::pop_back(std::string_view name) {
  JSONNode** const slot = internal->at(name);
  return takeOut(slot == nullptr ? size() : indexOf(slot));
}

JSONNode JSONNode::pop_back_nocase(std::string_view name) {
  JSONNode** const slot = internal->at_nocase(name);
  return takeOut(slot == nullptr ? size() : indexOf(slot));
}

// A place is remembered by its number, because the copy made on write has other slots.
unsigned int JSONNode::indexOf(JSONNode* const* place) const {
  const std::less<> before;  // total, also for places in other containers
  JSONNode** const first = firstSlot(*internal);
  if (!internal->isContainer() || before(place, first) || before(endSlot(*internal), place)) {
    throw std::out_of_range("");
  }
  return static_cast<unsigned int>(place - first);
}

JSONNode::iterator JSONNode::eraseRange(unsigned int first, unsigned int last) {
  if (first > last) {
    throw std::out_of_range("");
  }
  jsonChildren& children = *own().children;
  std::for_each(children.begin() + first, children.begin() + last, deleteJSONNode);
  children.doerase(first, last - first);
  return iterator(children.begin() + first);
}

JSONNode::iterator JSONNode::erase(iterator position) {
  const unsigned int index = indexOf(position.place());
  if (index == internal->size()) {
    throw std::out_of_range("");
  }
  return eraseRange(index, index + 1);
}

JSONNode::iterator JSONNode::erase(iterator first, iterator last) {
  return eraseRange(indexOf(first.place()), indexOf(last.place()));
}

JSONNode::reverse_iterator JSONNode::erase(reverse_iterator position) {
  const unsigned int after = indexOf(position.base().place());
  return reverse_iterator(eraseRange(after - 1, after));  // refused at 0, which wraps
}

JSONNode::reverse_iterator JSONNode::erase(reverse_iterator first, reverse_iterator last) {
  return reverse_iterator(eraseRange(indexOf(last.base().place()), indexOf(first.base().place())));
}

template <typename Iterator>
JSONNode::iterator JSONNode::insertRange(JSONNode** position, Iterator first, Iterator last) {
  const unsigned int index = indexOf(position);
  if (first > last) {
    throw std::out_of_range("");
  }
  // Copied first: the range may lie in this very node.
  std::vector<JSONNode> copies(first, last);
  jsonChildren& children = *own().children;
  const unsigned int oldSize = children.size;
  children.inc(static_cast<unsigned int>(copies.size()));
  for (JSONNode& copy : copies) {
    children.append(newJSONNode(std::move(copy)));
  }
  std::rotate(children.begin() + index, children.begin() + oldSize, children.end());
  return iterator(children.begin() + index);
}

JSONNode::iterator JSONNode::insert(iterator position, JSONNode child) {
  JSONNode* const one = &child;
  return insertRange(position.place(), one, one + 1);
}

JSONNode::reverse_iterator JSONNode::insert(reverse_iterator position, JSONNode child) {
  JSONNode* const one = &child;
  return reverse_iterator(insertRange(position.base().place(), one, one + 1) + 1);
}

JSONNode::iterator JSONNode::insertFFF(iterator position, const_iterator first,
                                       const_iterator last) {
  return insertRange(position.place(), first, last);
}

JSONNode::iterator JSONNode::insertFRR(iterator position, reverse_const_iterator first,
                                       reverse_const_iterator last) {
  return insertRange(position.place(), first, last);
}

JSONNode::reverse_iterator JSONNode::insertRFF(reverse_iterator position, const_iterator first,
                                               const_iterator last) {
  const auto count = last - first;
  return reverse_iterator(insertRange(position.base().place(), reverse_const_iterator(last),
                                      reverse_const_iterator(first)) +
                          count);
}

JSONNode::reverse_iterator JSONNode::insertRRR(reverse_iterator position,
                                               reverse_const_iterator first,
                                               reverse_const_iterator last) {
  const auto count = last - first;
  return reverse_iterator(insertRange(position.base().place(), last.base(), first.base()) + count);
}

void JSONNode::merge(JSONNode& other) {
  internal->Fetch();
  other.internal->Fetch();
  if (this == &other || !internal->isContainer() || !other.internal->isContainer()) {
    return;
  }
  jsonChildren& from = *other.own().children;
  jsonChildren& to = *own().children;
  to.inc(from.size);
  std::for_each(from.begin(), from.end(), [&to](JSONNode* child) { to.append(child); });
  from.size = 0;
}

void JSONNode::merge(JSONNode* other) {
  if (other != nullptr) {
    merge(*other);
  }
}

void JSONNode::merge(unsigned int count, JSONNode* const* others) {
  for (unsigned int i = 0; i < count; ++i) {
    merge(others[i]);
  }
}
