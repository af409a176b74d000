#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "json/_internal/Source/FreeList.h"
#include "json/_internal/Source/JSONChildren.h"
#include "json/_internal/Source/JSONNode.h"
#include "json/_internal/Source/JSONOutput.h"
#include "json/_internal/Source/JSONSource.h"
#include "json/_internal/Source/JSONText.h"
#include "json/_internal/Source/JSONWorker.h"
#include "json/_internal/Source/NumberToString.h"
#include "json/_internal/Source/Sanitizer.h"

/// The body behind one or more JSONNode handles: a value, its name and, for arrays and objects,
/// its children. Made by newInternal(), ended by deleteInternal(); handles count their shares in
/// it. A body made by the parser keeps its source text until its content is first needed (Fetch()).
class internalJSONNode {
 public:
  /// The level that selects the compact form when writing.
  static constexpr unsigned int kNotFormatted = 0xFFFFFFFF;

  /// A new, empty body of a type, with one share.
  static internalJSONNode* newInternal(char type);
  /// A named scalar. The text is copied; it is escaped when it is written if this is a string.
  static internalJSONNode* newScalar(char type, std::string_view name, std::string_view text,
                                     double value);
  /// A body in the memory of `source`, for a name and a value that are slices of its text. Only for
  /// what is made once for a document, whose memory grows by it. For JSONWorker.cpp alone, where it
  /// is defined so that it can be inlined.
  static internalJSONNode* newInternal(char type, std::string_view name, std::string_view value,
                                       const json_detail::JSONSource& source);
  /// The same in memory of its own.
  static internalJSONNode* newSlice(char type, std::string_view name, std::string_view value,
                                    const json_detail::JSONSource& source);
  /// A deep copy with one share: every child of every level is copied too.
  static internalJSONNode* newInternal(const internalJSONNode& original);
  /// Ends a body that nobody shares any more, and every body below that it was the last to hold.
  /// Takes no stack in proportion to the depth.
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
  /// Copy-on-write: the body itself when it has one owner, else a copy that replaces the caller's
  /// share.
  [[nodiscard]] internalJSONNode* makeUnique() { return refcount < 2 ? this : detachedCopy(); }

  [[nodiscard]] bool isContainer() const { return type == JSON_ARRAY || type == JSON_NODE; }
  /// The number of children of a fetched container; 0 for anything else.
  [[nodiscard]] unsigned int size() const { return isContainer() ? children->size : 0; }

  /// Decodes the source text on first use; malformed text makes the body null.
  void Fetch() {
    if (fetched) {
      return;
    }
    if (type == JSON_STRING) {
      FetchString();
    } else if (type == JSON_NUMBER) {
      FetchNumber();
    } else {
      FetchOther();
    }
    fetched = true;
  }
  /// Makes the value null. Children built before stay in memory but are not reachable.
  void Nullify();

  void Set(std::string_view newText);
  void Set(const char* newText) { Set(std::string_view(newText)); }
  void Set(const std::string& newText) { Set(std::string_view(newText)); }
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
  void SetName(std::string_view newName) {
    name.assign(newName, nameRoom());
    nameEncoded = true;
  }
  /// Turns the value into another type; see JSONNode::cast().
  void Cast(char newType);

  /// The child's handle slot, or null when there is none or this is no container.
  JSONNode** at(std::string_view key) {
    if (!fetched) {
      FetchNow();
    }
    return isContainer() ? childNamed(key) : nullptr;
  }
  JSONNode** at_nocase(std::string_view key);
  JSONNode* at(unsigned int index);

  /// Appends a handle that shares the child's body. Does nothing on a body that is no container.
  void push_back(JSONNode&& child);
  void push_front(JSONNode&& child);

  /// The text: a string's characters, a number as it was written, "true", "false", "null"; empty
  /// for arrays and objects. Valid until the body changes.
  std::string_view AsText() {
    Fetch();
    return text.view();
  }
  explicit operator bool();
  explicit operator long long() { return NumberToString::truncate(numericValue()); }
  explicit operator unsigned long long();
  explicit operator long double();

  /// Same type, name and value, and equal children in the same order. Numbers compare by value;
  /// comments do not count.
  bool IsEqualTo(internalJSONNode& other);
  /// Equality of names without regard to the case of A to Z.
  static bool AreEqualNoCase(std::string_view left, std::string_view right);

  void Write(unsigned int level, bool arrayChild, json_detail::JSONOutput& output);

  unsigned char type;
  bool nameEncoded = false;  // the name must be escaped when it is written
  bool textEncoded = false;  // the text is a string that must be escaped when it is written
  bool fetched;

 private:
  bool isInSource = false;     // its memory is the source's
  bool isEnded = false;        // only its own handle is still in use
  bool isHandleTaken = false;  // that is, by a container

 public:
  json_detail::JSONText name;
  json_detail::JSONText text;
  double value = 0;  // of a number; 1 or 0 for a bool
  std::size_t refcount = 1;
  json_detail::JSONText comment;
  jsonChildren* children = nullptr;  // owned; made with the body for arrays and objects
  json_detail::JSONSource source;    // what borrowed texts are slices of, and may be the memory

 private:
  friend class JSONNode;
  friend struct JSONNodeAccess;

  /// Where a child's handle stands in memory.
  struct ChildHandle {
    JSONNode node;
    internalJSONNode* home;  // the body that it came with, if any
  };
  /// The memory of a body that stands by itself: behind it there is room for the usual name and
  /// the usual text.
  struct Standalone;
  static constexpr std::size_t kRoom = 24;

  // NOLINTBEGIN(cppcoreguidelines-pro-type-member-init): ownHandle is memory, for an object to
  // come.
  internalJSONNode(unsigned char bodyType, bool isFetched) : type(bodyType), fetched(isFetched) {}
  /// A body in the memory of `from` that borrows its name and text from it, or its text from the
  /// constants.
  internalJSONNode(unsigned char bodyType, std::string_view bodyName, std::string_view bodyText,
                   bool isFetched, json_detail::JSONSource from)
      : type(bodyType),
        fetched(isFetched),
        isInSource(true),
        name(bodyName),
        text(bodyText),
        source(std::move(from)) {}
  // NOLINTEND(cppcoreguidelines-pro-type-member-init)
  ~internalJSONNode() = default;

  static internalJSONNode* make(unsigned char type, bool fetched);
  /// A new handle for a container. The usual one comes with its body.
  static JSONNode* newHandle(JSONNode&& node);
  /// The handle in the memory of a new body.
  static JSONNode* ownHandleFor(JSONNode&& node);
  /// Gives back the memory of a handle whose share has been dropped or passed on.
  static void giveHandle(JSONNode* handle) noexcept;
  internalJSONNode* detachedCopy();
  static void destroyOne(internalJSONNode* body) noexcept;
  static bool dropLeaves(internalJSONNode& body) noexcept;
  static internalJSONNode* copyWithoutChildren(const internalJSONNode& original);
  /// Whether this is the handle in the body's own memory.
  [[nodiscard]] bool owns(const JSONNode* handle) const {
    return static_cast<const void*>(handle) == ownHandle.data();
  }
  void giveMemory() noexcept;
  [[nodiscard]] std::span<char> nameRoom();
  [[nodiscard]] std::span<char> textRoom();
  void makeChildren();
  static void dropChildren(internalJSONNode& body) noexcept;

  [[nodiscard]] JSONNode** childNamed(std::string_view key) const;
  void FetchString();
  void FetchNumber() { value = NumberToString::_atof(text.view()); }
  void FetchOther();
  void FetchNow();  // Fetch() as a call, for where it is seldom needed
  void FetchArray();
  void FetchNode();
  void becomeScalar(unsigned char newType);
  void becomeContainer(unsigned char newType);
  double numericValue() {
    Fetch();
    if (type == JSON_STRING) {
      value = NumberToString::_atof(text.view());
    }
    return type == JSON_NULL ? 0 : value;
  }
  bool isEqualApartFromChildren(internalJSONNode& other);

  void WriteName(bool formatted, bool arrayChild, json_detail::JSONOutput& output) const;
  void WriteChildren(unsigned int level, json_detail::JSONOutput& output);
  void WriteComment(unsigned int level, json_detail::JSONOutput& output) const;
  void DumpRawString(json_detail::JSONOutput& output) const;
  bool WriteValue(unsigned int level, bool arrayChild, json_detail::JSONOutput& output);

  alignas(ChildHandle) std::array<std::byte, sizeof(ChildHandle)> ownHandle;
};

struct internalJSONNode::Standalone {
  alignas(internalJSONNode) std::array<std::byte, sizeof(internalJSONNode) + 2 * kRoom> memory;
};

inline std::span<char> internalJSONNode::nameRoom() {
  if (isInSource) {
    return {};
  }
  return {reinterpret_cast<char*>(this + 1), kRoom};
}

inline std::span<char> internalJSONNode::textRoom() {
  if (isInSource) {
    return {};
  }
  return {reinterpret_cast<char*>(this + 1) + kRoom, kRoom};
}

inline internalJSONNode* internalJSONNode::make(unsigned char type, bool fetched) {
  return ::new (json_detail::FreeList<Standalone>::take()) internalJSONNode(type, fetched);
}

inline JSONNode* internalJSONNode::ownHandleFor(JSONNode&& node) {
  internalJSONNode* const body = node.internal;
  body->isHandleTaken = true;
  return &(::new (body->ownHandle.data()) ChildHandle{std::move(node), body})->node;
}

inline JSONNode* internalJSONNode::newHandle(JSONNode&& node) {
  internalJSONNode* const body = node.internal;
  // A handle in a document's memory would keep the document, also when its value has been replaced.
  if (!body->isHandleTaken && !body->isInSource) {
    return ownHandleFor(std::move(node));
  }
  void* const memory = json_detail::FreeList<ChildHandle>::take();
  return &(::new (memory) ChildHandle{std::move(node), nullptr})->node;
}

inline void internalJSONNode::giveMemory() noexcept {
  if (!isInSource) {
    this->~internalJSONNode();
    json_detail::FreeList<Standalone>::give(this);
    return;
  }
  const json_detail::JSONSource memory = std::move(source);
  this->~internalJSONNode();
  json_detail::forbidUse(this, sizeof *this);
}

inline void internalJSONNode::giveHandle(JSONNode* handle) noexcept {
  auto* const child = reinterpret_cast<ChildHandle*>(handle);
  internalJSONNode* const home = child->home;
  if (home == nullptr) {
    json_detail::FreeList<ChildHandle>::give(child);
    return;
  }
  home->isHandleTaken = false;
  if (home->isEnded) {
    home->giveMemory();
  }
}

inline void internalJSONNode::FetchString() {
  const std::string_view quoted = text.view();
  if (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"') {
    Nullify();
    return;
  }
  if (source.mayHoldEscapes() && JSONWorker::FixInto(text, quoted.substr(1, quoted.size() - 2))) {
    textEncoded = true;
  } else {
    text.dropEnds();  // textEncoded is false from the beginning
  }
}

/// The way between a handle and its body, for the library's own sources.
struct JSONNodeAccess {
  static internalJSONNode& body(const JSONNode& node) { return *node.internal; }
  /// A handle that takes over one share.
  static JSONNode adopt(internalJSONNode* body) noexcept {
    return JSONNode(JSONNode::Adopt{}, body);
  }
  static bool isInSource(const internalJSONNode& body) { return body.isInSource; }
  /// The first handle of a new body that its parent keeps.
  static JSONNode* ownHandleFor(JSONNode&& node) {
    return internalJSONNode::ownHandleFor(std::move(node));
  }
  /// JSONNode::newJSONNode(), for the hot paths.
  static JSONNode* newHandle(JSONNode&& node) {
    return internalJSONNode::newHandle(std::move(node));
  }
  /// The share of a handle that is done with it.
  static internalJSONNode* release(JSONNode&& node) noexcept {
    return std::exchange(node.internal, nullptr);
  }
};
