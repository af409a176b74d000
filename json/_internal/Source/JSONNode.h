#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "json/_internal/Source/FreeList.h"
#include "json/_internal/Source/JSONIterators.h"
#include "json/_internal/Source/JSONTypes.h"
#include "json/_internal/Source/NumberToString.h"

class internalJSONNode;

/// A JSON value (RFC 8259) with its name: a handle on a shared body. Strings are bytes: "\u20ac"
/// gives its low byte, and each byte is escaped alone.
///
/// Copying a node copies a pointer. The first use through a handle that can change a body which
/// others share (also non-const [], at, find, begin and end) gives this handle a deep copy of its
/// own (copy-on-write), so a copy never sees a change made through another. Members and elements
/// keep the order in which they were added; a name may occur more than once, and lookup finds the
/// first.
///
/// A parsed tree is decoded lazily: an object is split into members when it is first searched, a
/// value is decoded when it is first read. A value that turns out to be malformed then reads as
/// null. So reading may change the tree inside, also through a const node: all that comes from one
/// text (copies, duplicates, children taken out) shares its memory and belongs to one thread at a
/// time.
///
/// Nodes that were moved from may only be assigned to or destroyed, and so may a tree with such a
/// child: take children out with pop_back(). A node must not be put below itself. References and
/// iterators to children stay valid until children are added or removed, or until the container is
/// copied and then changed; a change through a reference that was taken before a copy shows in
/// both. Reading every level of a deeply nested text costs its depth times its length.
///
/// The library throws std::out_of_range (no text) where said below,
/// std::invalid_argument from JSONWorker::parse(), and std::bad_alloc.
///
/// ```
/// JSONNode request = JSONWorker::parse(R"({"user":"ana","age":41})");
/// std::string user = request["user"].as_string();
/// JSONNode answer(JSON_NODE);
/// answer.push_back(JSONNode("greeting", "Hi " + user));
/// std::string text = answer.write();  // {"greeting":"Hi ana"}
/// ```
class JSONNode {
 public:
  using iterator = JSONIterator<JSONNode>;
  using const_iterator = JSONIterator<const JSONNode>;
  using reverse_iterator = std::reverse_iterator<iterator>;
  using reverse_const_iterator = std::reverse_iterator<const_iterator>;

  // --- making and copying ------------------------------------------------------------------------

  /// An empty value of a type: null, "", 0, false, [] or {}. An unknown code makes a null.
  explicit JSONNode(char type = JSON_NODE);
  /// A named number; its text is the decimal digits, its value the nearest double.
  template <JSONInteger T>
  JSONNode(std::string_view name, T value)
      : JSONNode(name, static_cast<double>(value), NumberToString::Digits(value).view()) {}
  /// A named number, which must be finite; its text has six decimals.
  JSONNode(std::string_view name, long double value);
  JSONNode(std::string_view name, double value) : JSONNode(name, static_cast<long double>(value)) {}
  JSONNode(std::string_view name, float value) : JSONNode(name, static_cast<long double>(value)) {}
  /// A named true or false.
  JSONNode(std::string_view name, bool value);
  /// A named string. The text is taken as it is and escaped when it is written.
  JSONNode(std::string_view name, std::string_view value);
  JSONNode(std::string_view name, const char* value);

  JSONNode(const JSONNode& other) noexcept;
  JSONNode(JSONNode&& other) noexcept : internal(std::exchange(other.internal, nullptr)) {}
  JSONNode& operator=(const JSONNode& other) noexcept;
  JSONNode& operator=(JSONNode&& other) noexcept {
    const JSONNode old(Adopt{}, std::exchange(internal, std::exchange(other.internal, nullptr)));
    return *this;
  }
  /// Releases one share of the body; the last one destroys the whole tree below it.
  ~JSONNode() {
    if (internal != nullptr) {
      dropShare(internal);
    }
  }

  /// A handle in memory of its own, as containers keep them; each needs one deleteJSONNode().
  static JSONNode* newJSONNode(JSONNode&& node) {
    return json_detail::FreeList<JSONNode>::make(std::move(node));
  }
  static void deleteJSONNode(JSONNode* node) noexcept {
    json_detail::FreeList<JSONNode>::destroy(node);
  }

  /// A deep copy that shares no body with this tree, made now rather than at the first change.
  [[nodiscard]] JSONNode duplicate() const;

  // --- what it is --------------------------------------------------------------------------------

  /// The type code, JSON_NULL to JSON_NODE. A parsed value tells its type
  /// without being decoded and may become JSON_NULL then.
  [[nodiscard]] char type() const;
  /// The member name; empty for parsed elements and roots. What is pushed into an array keeps its
  /// name: it counts in ==, but is not written.
  [[nodiscard]] std::string name() const;
  void set_name(std::string_view name);
  /// The comment that stood in front of the member, element or root, its lines joined by "\n".
  [[nodiscard]] std::string get_comment() const;
  void set_comment(std::string_view comment);
  /// The number of children; 0 for anything but arrays and objects.
  [[nodiscard]] unsigned int size() const;
  [[nodiscard]] bool empty() const { return size() == 0; }

  /// Same type, name and value, and equal children in the same order. Numbers
  /// compare by value (1 equals 1.0); comments do not count.
  [[nodiscard]] bool operator==(const JSONNode& other) const;

  // --- reading the value -------------------------------------------------------------------------

  /// The characters of a string, a number as it was written (1.50 stays 1.50),
  /// "true", "false", "null"; empty for arrays and objects.
  [[nodiscard]] std::string as_string() const;
  /// The value as an integer: numbers and numeric strings truncated toward zero ("12abc" is 12),
  /// true 1, else 0. What 64 bits cannot hold becomes the nearest limit, NaN 0. Exact up to 2^53.
  [[nodiscard]] long as_int() const;
  /// The value as a number: as as_int(), not truncated.
  [[nodiscard]] double as_float() const;
  /// False for null, false, 0, "" and empty arrays and objects; true for everything else.
  [[nodiscard]] bool as_bool() const;
  explicit operator bool() const { return as_bool(); }
  explicit operator long long() const;
  /// As as_int(); negative values become 0.
  explicit operator unsigned long long() const;
  explicit operator long double() const;
  /// A copy as an object: an array's elements become members without names,
  /// anything but an array or object gives an empty object.
  [[nodiscard]] JSONNode as_node() const;
  /// A copy as an array: an object's members lose their names, anything else gives an empty array.
  [[nodiscard]] JSONNode as_array() const;

  /// Turns this value into another type: to string, the text as as_string() gives it; to number,
  /// the value as as_float() gives it; to bool as as_bool(); arrays and objects as as_array() and
  /// as_node(); any other code makes it null.
  void cast(char type);

  // --- children ----------------------------------------------------------------------------------

  /// The first member of that name, byte for byte. The member must exist: when it does not, the
  /// process is ended with one line on standard error, because there is no value to go on with. Use
  /// find() or at() where a member may be absent.
  [[nodiscard]] JSONNode& operator[](std::string_view name);
  [[nodiscard]] const JSONNode& operator[](std::string_view name) const;
  /// The child at a position from 0, which must exist (as above).
  [[nodiscard]] JSONNode& operator[](unsigned int index);
  [[nodiscard]] const JSONNode& operator[](unsigned int index) const;

  /// The same, throwing std::out_of_range when there is no such child.
  [[nodiscard]] JSONNode& at(std::string_view name);
  [[nodiscard]] const JSONNode& at(std::string_view name) const;
  [[nodiscard]] JSONNode& at(unsigned int index);
  [[nodiscard]] const JSONNode& at(unsigned int index) const;
  /// The first member whose name is equal apart from the case of A to Z, or std::out_of_range.
  [[nodiscard]] JSONNode& at_nocase(std::string_view name);
  [[nodiscard]] const JSONNode& at_nocase(std::string_view name) const;

  /// The first member of that name, or end().
  [[nodiscard]] iterator find(std::string_view name);
  [[nodiscard]] const_iterator find(std::string_view name) const;
  [[nodiscard]] iterator find_nocase(std::string_view name);
  [[nodiscard]] const_iterator find_nocase(std::string_view name) const;

  [[nodiscard]] iterator begin();
  [[nodiscard]] iterator end();
  [[nodiscard]] const_iterator begin() const;
  [[nodiscard]] const_iterator end() const;
  [[nodiscard]] reverse_iterator rbegin() { return reverse_iterator(end()); }
  [[nodiscard]] reverse_iterator rend() { return reverse_iterator(begin()); }
  [[nodiscard]] reverse_const_iterator rbegin() const { return reverse_const_iterator(end()); }
  [[nodiscard]] reverse_const_iterator rend() const { return reverse_const_iterator(begin()); }

  /// Appends a child, sharing its body. Nothing happens when this is no array or object.
  void push_back(JSONNode child);
  void push_front(JSONNode child);
  /// Makes room for children to come: exactly that many when there is no room yet; when there is,
  /// for as many beyond the present children as the number exceeds that room (which may be fewer in
  /// all). Nothing but speed depends on it.
  void reserve(unsigned int children);

  /// Takes a child out and returns it; std::out_of_range when there is none.
  JSONNode pop_back(unsigned int index);
  JSONNode pop_back(std::string_view name);
  JSONNode pop_back_nocase(std::string_view name);

  /// Removes a child or a range and returns the place after it, in the direction of the iterator.
  /// std::out_of_range when the places are not within this node's children.
  iterator erase(iterator position);
  iterator erase(iterator first, iterator last);
  reverse_iterator erase(reverse_iterator position);
  reverse_iterator erase(reverse_iterator first, reverse_iterator last);

  /// Puts a child (sharing its body) before a place, and returns where it now is. For reverse
  /// iterators "before" is meant in their direction. std::out_of_range for a foreign place.
  iterator insert(iterator position, JSONNode child);
  reverse_iterator insert(reverse_iterator position, JSONNode child);
  /// Puts children of any node (sharing their bodies) before a place, such that who reads on in the
  /// direction of `position` meets them in the order of the range; returns the first of them.
  iterator insert(iterator position, const_iterator first, const_iterator last) {
    return insertFFF(position, first, last);
  }
  iterator insert(iterator position, reverse_const_iterator first, reverse_const_iterator last) {
    return insertFRR(position, first, last);
  }
  reverse_iterator insert(reverse_iterator position, const_iterator first, const_iterator last) {
    return insertRFF(position, first, last);
  }
  reverse_iterator insert(reverse_iterator position, reverse_const_iterator first,
                          reverse_const_iterator last) {
    return insertRRR(position, first, last);
  }
  /// The four combinations of insert() by name: direction of the place, then of the range.
  iterator insertFFF(iterator position, const_iterator first, const_iterator last);
  iterator insertFRR(iterator position, reverse_const_iterator first, reverse_const_iterator last);
  reverse_iterator insertRFF(reverse_iterator position, const_iterator first, const_iterator last);
  reverse_iterator insertRRR(reverse_iterator position, reverse_const_iterator first,
                             reverse_const_iterator last);

  /// Moves the children of `other` to the end of this node's children and leaves `other` empty.
  /// Equal names are kept side by side. Who shares the body of `other` keeps its children. Nothing
  /// happens unless both are arrays or objects, or when both are the same node.
  void merge(JSONNode& other);
  /// The same; null does nothing.
  void merge(JSONNode* other);
  /// The same for `count` nodes, in order.
  void merge(unsigned int count, JSONNode* const* others);

  // --- writing -----------------------------------------------------------------------------------

  /// The tree as one line of JSON without white space; empty for anything but an array or object.
  /// Parts of a parsed tree that were never read come out as they came in, without white space and
  /// comments. Every byte outside printable ASCII of a string that was set, or read and had
  /// escapes, is written as "\u00XX".
  /// @param reserve  the expected length in bytes; not a limit
  [[nodiscard]] std::string write(std::size_t reserve = 0) const;
  /// The same with line breaks ("\n") and one tab of indentation per level.
  [[nodiscard]] std::string write_formatted(std::size_t reserve = 0) const;

 private:
  friend struct JSONNodeAccess;
  struct Adopt {};
  JSONNode(Adopt, internalJSONNode* body) noexcept : internal(body) {}
  JSONNode(std::string_view name, double value, std::string_view digits);

  static void dropShare(internalJSONNode* body) noexcept;
  /// The body after copy-on-write: every operation that can change it begins so.
  internalJSONNode& own();
  [[nodiscard]] unsigned int indexOf(JSONNode* const* place) const;
  JSONNode takeOut(unsigned int index);
  iterator eraseRange(unsigned int first, unsigned int last);
  template <typename Iterator>
  iterator insertRange(JSONNode** position, Iterator first, Iterator last);
  [[nodiscard]] std::string writeAt(unsigned int level, std::size_t reserve) const;

  internalJSONNode* internal;
};
