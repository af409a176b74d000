#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "json/_internal/Source/FreeList.h"
#include "json/_internal/Source/JSONChildren.h"
#include "json/_internal/Source/JSONNode.h"
#include "json/_internal/Source/JSONOutput.h"
#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/JSONSource.h"
#include "json/_internal/Source/JSONText.h"
#include "json/_internal/Source/NumberToString.h"
#include "json/_internal/Source/Sanitizer.h"

/// The body behind one or more JSONNode handles: a value, its name and, for arrays and objects, its
/// children. Made by newInternal(), ended by deleteInternal(); handles count their shares in it. A
/// body made by the parser keeps its source text until its content is first needed (Fetch()).
class internalJSONNode {
 public:
  /// The level that selects the compact form when writing.
  static constexpr unsigned int kNotFormatted = 0xFFFFFFFF;

  /// Whose memory a body is in.
  enum class Home : unsigned char {
    kOwn,
    kDocument,  // its source's, which grows by it and keeps it: for what is made once per document
  };

  /// A new, empty body of a type, with one share.
  static internalJSONNode* newInternal(char type);
  /// A named scalar. The text is copied, but for a bool's, which is constant; it is escaped when it
  /// is written if this is a string.
  static internalJSONNode* newScalar(char type, std::string_view name, std::string_view text,
                                     double value);
  /// A value of a type that a parser found: name and value are slices of the text of `source`.
  static JSONNode newParsed(char type, std::string_view name, std::string_view value,
                            const json_detail::JSONSource& source, Home home);
  /// A deep copy with one share: every child of every level is copied too.
  static internalJSONNode* newInternal(const internalJSONNode& original);
  /// Ends a body that nobody shares any more, and every body below that it was
  /// the last to hold. Takes no stack in proportion to the depth.
  static void deleteInternal(internalJSONNode* body) noexcept;

  internalJSONNode(const internalJSONNode&) = delete;
  internalJSONNode& operator=(const internalJSONNode&) = delete;
  internalJSONNode(internalJSONNode&&) = delete;
  internalJSONNode& operator=(internalJSONNode&&) = delete;

  void addShare() noexcept { ++refcount; }
  /// Gives one share back; the last one ends the body.
  void dropShare() noexcept {
    if (--refcount == 0) {
      deleteInternal(this);
    }
  }
  /// Copy-on-write: the body itself when it has one owner, else a copy that
  /// replaces the caller's share.
  [[nodiscard]] internalJSONNode* makeUnique() { return refcount < 2 ? this : detachedCopy(); }

  [[nodiscard]] bool isContainer() const { return type == JSON_ARRAY || type == JSON_NODE; }
  /// The number of children of a fetched container; 0 for anything else.
  [[nodiscard]] unsigned int size() const { return isContainer() ? children->size : 0; }

  /// Decodes the source text on first use; malformed text makes the body null.
  void Fetch() {
    if (!fetched) {
      FetchNow();
    }
  }
  /// Splits the text of an object or array into children, or makes the body null.
  void FetchNode(std::string_view whole);
  void FetchArray(std::string_view whole);
  /// Makes the value null. Children built before stay in memory but are not reachable.
  void Nullify();

  void Set(std::string_view newText);
  void Set(const char* newText) { Set(std::string_view(newText)); }
  void Set(bool truth);
  void Set(long double number);
  void Set(double number) { Set(static_cast<long double>(number)); }
  void Set(float number) { Set(static_cast<long double>(number)); }
  template <JSONInteger T>
  void Set(T number) {
    SetNumber(static_cast<double>(number), NumberToString::Digits(number).view());
  }
  /// A number and its text.
  void SetNumber(double number, std::string_view digits);
  void SetName(std::string_view newName);
  /// Turns a fetched value into another type; see JSONNode::cast().
  void Cast(char newType);

  /// The child's handle slot, or null when there is none or this is no container.
  JSONNode** at(std::string_view key);
  JSONNode** at_nocase(std::string_view key);
  /// The child's handle, or null.
  JSONNode* at(unsigned int index);

  /// Appends the child. Does nothing on a body that is no container.
  void push_back(JSONNode&& child);
  void push_front(JSONNode&& child);

  /// The text: a string's characters, a number as it was written, "true", "false", "null"; empty
  /// for arrays and objects. Valid until the body changes.
  std::string_view AsText() {
    Fetch();
    return text.view();
  }
  explicit operator bool();
  explicit operator long long() { return NumberToString::truncate<long long>(numericValue()); }
  explicit operator unsigned long long() {
    return NumberToString::truncate<unsigned long long>(numericValue());
  }
  explicit operator long double() { return numericValue(); }

  /// Same type, name and value, and equal children in the same order. Numbers
  /// compare by value; comments do not count.
  bool IsEqualTo(internalJSONNode& other);
  /// Equality of names without regard to the case of A to Z.
  static bool AreEqualNoCase(std::string_view left, std::string_view right);

  void Write(unsigned int level, bool arrayChild, json_detail::JSONOutput& output);

  using ChildrenOwner = std::unique_ptr<jsonChildren, json_detail::Recycle<jsonChildren>>;

  unsigned char type;
  bool nameEncoded = false;  // the name must be escaped when it is written
  bool textEncoded = false;  // the text is a string that must be escaped when it is written
  bool fetched;
  const Home home;
  json_detail::JSONText name;
  json_detail::JSONText text;
  double value = 0;  // of a number; 1 or 0 for a bool
  std::size_t refcount = 1;
  json_detail::JSONText comment;
  ChildrenOwner children;          // of containers
  json_detail::JSONSource source;  // what borrowed texts are slices of, and may be the memory

 private:
  struct Standalone;
  using Recycled = json_detail::FreeList<Standalone>;

  /// Borrows name and text.
  internalJSONNode(unsigned char bodyType, bool isFetched, Home bodyHome,
                   std::string_view bodyName = {}, std::string_view bodyText = {},
                   json_detail::JSONSource from = {}) noexcept
      : type(bodyType),
        fetched(isFetched),
        home(bodyHome),
        name(bodyName),
        text(bodyText),
        source(std::move(from)) {}
  ~internalJSONNode() = default;

  static Standalone* standalone(internalJSONNode* body);
  static internalJSONNode* copyWithoutChildren(const internalJSONNode& original);
  internalJSONNode* detachedCopy();
  static void destroyOne(internalJSONNode* body) noexcept;
  [[nodiscard]] std::span<char> nameRoom();
  [[nodiscard]] std::span<char> textRoom();
  void makeChildren();
  void becomeScalar(unsigned char newType);
  void becomeContainer(unsigned char newType);

  void FetchNow();
  void NewNode(std::string_view childName, std::string_view childValue, std::string_view comments);
  template <typename Split>
  void split(std::string_view whole, char open, char close, Split splitBy);

  double numericValue();
  bool isEqualApartFromChildren(internalJSONNode& other);

  void WriteName(bool formatted, bool arrayChild, json_detail::JSONOutput& output) const;
  void WriteChildren(unsigned int level, json_detail::JSONOutput& output);
  void WriteComment(unsigned int level, json_detail::JSONOutput& output) const;
  void DumpRawString(json_detail::JSONOutput& output) const;
  bool WriteValue(unsigned int level, bool arrayChild, json_detail::JSONOutput& output);

  internalJSONNode* nextEnded = nullptr;  // among those whose children are still to be released
};

/// A body in memory of its own, with room for the usual name and the usual text.
struct internalJSONNode::Standalone : internalJSONNode {
  Standalone(unsigned char bodyType, bool isFetched, std::string_view bodyName = {},
             std::string_view bodyText = {}, json_detail::JSONSource from = {}) noexcept
      : internalJSONNode(bodyType, isFetched, Home::kOwn, bodyName, bodyText, std::move(from)) {}

  static constexpr std::size_t kRoom = 24;
  std::array<char, kRoom> nameRoom{};
  std::array<char, kRoom> textRoom{};
};

/// The way between a handle and its body, for the library's own sources.
struct JSONNodeAccess {
  static internalJSONNode& body(const JSONNode& node) { return *node.internal; }
  /// A handle that takes over one share.
  static JSONNode adopt(internalJSONNode* body) noexcept {
    return JSONNode(JSONNode::Adopt{}, body);
  }
  /// The share of a handle that is done with it; null when it was moved from.
  static internalJSONNode* release(JSONNode&& node) noexcept {
    return std::exchange(node.internal, nullptr);
  }
};

[[gnu::always_inline]] inline JSONNode internalJSONNode::newParsed(
    char type, std::string_view name, std::string_view value, const json_detail::JSONSource& source,
    Home home) {
  const bool isFetched = type == JSON_NULL || type == JSON_BOOL;
  const std::string_view text = type == JSON_NULL ? jsonSingletonCONST_NULL() : value;
  const auto code = static_cast<unsigned char>(type);
  JSONNode node = JSONNodeAccess::adopt(
      home == Home::kOwn ? Recycled::make(code, isFetched, name, text, source)
                         : ::new (source.allocate<internalJSONNode>()) internalJSONNode(
                               code, isFetched, Home::kDocument, name, text, source));
  internalJSONNode& body = JSONNodeAccess::body(node);
  if (type >= JSON_ARRAY) {
    body.makeChildren();
  } else if (type == JSON_BOOL) {
    body.value = value.front() == 't' ? 1 : 0;
  }
  return node;
}

inline void internalJSONNode::push_back(JSONNode&& child) {
  Fetch();
  if (isContainer()) {
    children->inc();
    children->append(JSONNode::newJSONNode(std::move(child)));
  }
}

inline internalJSONNode& JSONNode::own() {
  internal = internal->makeUnique();
  return *internal;
}
