#pragma once

#include <compare>
#include <cstddef>
#include <iterator>
#include <type_traits>

class JSONNode;

/// A place among the children of an array or object, for the standard algorithms: random access,
/// `Node` being JSONNode or const JSONNode. It stays valid as long as nothing is added to or taken
/// from the container; after an erase, the same place holds the child that followed.
template <typename Node>
class JSONIterator {
 public:
  using iterator_category = std::random_access_iterator_tag;
  using value_type = JSONNode;
  using difference_type = std::ptrdiff_t;
  using pointer = Node*;
  using reference = Node&;

  JSONIterator() = default;
  explicit JSONIterator(JSONNode** place) : slot(place) {}
  /// A constant iterator from one that is not.
  template <typename Other,
            typename = std::enable_if_t<std::is_const_v<Node> && !std::is_const_v<Other>>>
  JSONIterator(const JSONIterator<Other>& other) : slot(other.place()) {}

  [[nodiscard]] reference operator*() const { return **slot; }
  [[nodiscard]] pointer operator->() const { return *slot; }
  [[nodiscard]] reference operator[](difference_type n) const { return *slot[n]; }

  JSONIterator& operator++() { return *this += 1; }
  JSONIterator& operator--() { return *this -= 1; }
  JSONIterator operator++(int) {
    const JSONIterator before = *this;
    ++*this;
    return before;
  }
  JSONIterator operator--(int) {
    const JSONIterator before = *this;
    --*this;
    return before;
  }
  JSONIterator& operator+=(difference_type n) {
    slot += n;
    return *this;
  }
  JSONIterator& operator-=(difference_type n) {
    slot -= n;
    return *this;
  }
  friend JSONIterator operator+(JSONIterator it, difference_type n) { return it += n; }
  friend JSONIterator operator+(difference_type n, JSONIterator it) { return it += n; }
  friend JSONIterator operator-(JSONIterator it, difference_type n) { return it -= n; }
  friend difference_type operator-(JSONIterator a, JSONIterator b) { return a.slot - b.slot; }
  friend bool operator==(JSONIterator a, JSONIterator b) { return a.slot == b.slot; }
  friend auto operator<=>(JSONIterator a, JSONIterator b) { return a.slot <=> b.slot; }

  /// The slot in the container; for the library itself.
  [[nodiscard]] JSONNode** place() const { return slot; }

 private:
  JSONNode** slot = nullptr;
};
