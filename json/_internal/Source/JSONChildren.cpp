#include "json/_internal/Source/JSONChildren.h"

#include <algorithm>
#include <limits>
#include <new>

#include "json/_internal/Source/JSONNode.h"

unsigned int jsonChildren::doubled(unsigned int slots) {
  if (slots > std::numeric_limits<unsigned int>::max() / 2) {
    throw std::bad_alloc();
  }
  return slots * 2;
}

void jsonChildren::resize(unsigned int slots) {
  if (slots <= firstSlots.size()) {
    array = firstSlots.data();
  } else {
    auto larger = std::make_unique_for_overwrite<JSONNode*[]>(slots);
    std::copy(begin(), end(), larger.get());
    block = std::move(larger);
    array = block.get();
  }
  capacity = slots;
}

void jsonChildren::inc(unsigned int n) {
  if (n == 0) {
    return;
  }
  if (n > std::numeric_limits<unsigned int>::max() - size) {
    throw std::bad_alloc();
  }
  const unsigned int needed = size + n;
  if (needed < capacity) {
    return;
  }
  unsigned int slots = capacity;
  if (slots == 0) {
    slots = std::max(n, kFirstCapacity);
  }
  while (slots < needed) {
    slots = doubled(slots);
  }
  resize(slots);
}

void jsonChildren::reserve2(jsonChildren& container, unsigned int amount) {
  if (container.capacity == 0) {
    if (amount != 0) {
      container.resize(amount);
    }
  } else if (container.capacity < amount) {
    container.inc(amount - container.capacity);
  }
}

void jsonChildren::doerase(unsigned int position, unsigned int count) {
  JSONNode** const slot = begin() + position;
  std::move(slot + count, end(), slot);
  size -= count;
}

void jsonChildren::releaseAll() noexcept {
  for (JSONNode* child : *this) {
    JSONNode::deleteJSONNode(child);
  }
  size = 0;
}
