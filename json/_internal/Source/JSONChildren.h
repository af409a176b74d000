#pragma once

#include <array>
#include <cstddef>
#include <memory>

class JSONNode;

/// The children of an array or object: handles, owned, in insertion order.
/// The container grows by fixed rules and never shrinks.
class jsonChildren {
 public:
  jsonChildren() = default;
  jsonChildren(const jsonChildren&) = delete;
  jsonChildren& operator=(const jsonChildren&) = delete;
  jsonChildren(jsonChildren&&) = delete;
  jsonChildren& operator=(jsonChildren&&) = delete;
  /// The handles must have been released before (releaseAll(), or by the release of the body).
  ~jsonChildren() = default;

  JSONNode** array = nullptr;  // the slots: the first ones below, or a block
  unsigned int size = 0;
  unsigned int capacity = 0;

  [[nodiscard]] JSONNode** begin() const { return array; }
  [[nodiscard]] JSONNode** end() const { return array + size; }

  /// Makes room for one more: 8 slots at first, then twice as many.
  void inc() {
    if (size != capacity) {
      return;
    }
    if (array == nullptr) {
      array = firstSlots.data();
      capacity = kFirstCapacity;
    } else {
      resize(doubled(capacity));
    }
  }

  /// Makes room for `n` more. A container without slots gets max(n, 8); any
  /// other doubles until it has at least size + n. (When size + n is exactly
  /// the capacity the block is renewed at its size; harmless, and kept.)
  void inc(unsigned int n);

  /// Exactly `amount` slots when there are none yet; else, when there are fewer, inc(amount -
  /// capacity), which counts from the present children: fewer than `amount` may come of it. Kept.
  static void reserve2(jsonChildren& container, unsigned int amount);

  /// Puts an owned handle into room that inc() or reserve2() has made.
  void append(JSONNode* child) { array[size++] = child; }

  /// Takes `count` slots out at `position` and moves the later handles down.
  /// The handles themselves are the caller's to release, before this call.
  void doerase(unsigned int position, unsigned int count);

  /// Releases every handle and forgets them; the slots stay.
  void releaseAll() noexcept;

 private:
  static constexpr unsigned int kFirstCapacity = 8;
  static unsigned int doubled(unsigned int slots);
  void resize(unsigned int slots);

  // The usual capacities come with the container, without an allocation of their own.
  std::array<JSONNode*, std::size_t{2} * kFirstCapacity> firstSlots{};
  std::unique_ptr<JSONNode*[]> block;
};
