#include "json/_internal/Source/JSONWorker.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/JSONStructure.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::IndexedStructure;
using json_detail::JSONSource;
using json_detail::ScannedStructure;

namespace {

/// The comment runs ("#...#", one after the other) at the front of a text. A run that is not closed
/// takes all that is left.
std::string_view commentsOf(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] == '#') {
    const std::size_t close = text.find('#', length + 1);
    length = close == std::string_view::npos ? text.size() : close + 1;
  }
  return text.substr(0, length);
}

/// The texts of comment runs, joined by line breaks.
void setComment(internalJSONNode& body, std::string_view runs) {
  std::string comment;
  while (!runs.empty()) {
    const std::size_t close = std::min(runs.find('#', 1), runs.size());
    comment += runs.substr(1, close - 1);
    runs.remove_prefix(std::min(close + 1, runs.size()));
    comment += runs.empty() ? "" : "\n";
  }
  body.comment.assign(comment);
}

/// The next of some separators outside brackets; null when there is none, also when a bracket is
/// closed before or is not closed at all.
template <char... Separators, typename Structure>
[[gnu::always_inline]] inline const char* nextRelevant(Structure& structure) {
  char open = 0;
  char close = 0;
  std::size_t depth = 0;  // of the group of brackets being skipped; other kinds do not count
  while (const char* const at = structure.next()) {
    const char byte = *at;
    if (depth != 0) {
      depth += byte == open ? 1 : 0;
      depth -= byte == close ? 1 : 0;
    } else if (json_detail::AnyOf<Separators...>::matches(byte)) {
      return at;
    } else if (byte == ']' || byte == '}') {
      return nullptr;
    } else if (byte == '[' || byte == '{') {
      open = byte;
      close = byte == '[' ? ']' : '}';
      depth = 1;
    }
  }
  return nullptr;
}

bool isEnclosed(std::string_view text, char open, char close) {
  return text.size() >= 2 && text.front() == open && text.back() == close;
}

/// The type of a value that is no string, by its first byte and its last; null when it is
/// malformed.
char typeOfOther(std::string_view value) {
  if (value.empty()) {
    return JSON_NULL;
  }
  switch (value.front()) {
    case '"':  // not closed
      return JSON_NULL;
    case '[':
      return isEnclosed(value, '[', ']') ? JSON_ARRAY : JSON_NULL;
    case '{':
      return isEnclosed(value, '{', '}') ? JSON_NODE : JSON_NULL;
    case 't':
    case 'f':
      return value == jsonSingletonCONST_TRUE() || value == jsonSingletonCONST_FALSE() ? JSON_BOOL
                                                                                       : JSON_NULL;
    default:
      return NumberToString::isNumeric(value) ? JSON_NUMBER : JSON_NULL;
  }
}

std::string_view between(const char* from, const char* to) {
  return {from, static_cast<std::size_t>(to - from)};
}

}  // namespace

[[gnu::always_inline]] inline internalJSONNode* internalJSONNode::newInternal(
    char type, std::string_view name, std::string_view value, const JSONSource& source) {
  const bool isFetched = type == JSON_NULL || type == JSON_BOOL;
  const std::string_view text = type == JSON_NULL ? jsonSingletonCONST_NULL() : value;
  void* const container = type >= JSON_ARRAY ? source.allocate<jsonChildren>() : nullptr;
  auto* const body = ::new (source.allocate<internalJSONNode>())
      internalJSONNode(static_cast<unsigned char>(type), name, text, isFetched, source);
  if (container != nullptr) {
    body->children = ::new (container) jsonChildren(true);
  } else if (type == JSON_BOOL) {
    body->value = value.front() == 't' ? 1 : 0;
  }
  return body;
}

namespace {

[[gnu::noinline]] internalJSONNode* newOther(std::string_view name, std::string_view value,
                                             const JSONSource& source) {
  return internalJSONNode::newInternal(typeOfOther(value), name, value, source);
}

/// A child of any container. A copy of a document's value gets children in memory of their own: any
/// number of copies may be split while the document lives.
[[gnu::noinline]] internalJSONNode* newChild(const internalJSONNode& parent, std::string_view name,
                                             std::string_view value) {
  const char type = isEnclosed(value, '"', '"') ? JSON_STRING : typeOfOther(value);
  return JSONNodeAccess::isInSource(parent)
             ? internalJSONNode::newInternal(type, name, value, parent.source)
             : internalJSONNode::newSlice(type, name, value, parent.source);
}

/// Splits a container's text with a callable that takes the structure of what is behind the opening
/// bracket.
template <typename Split>
[[gnu::always_inline]] inline void split(internalJSONNode& parent, std::string_view text, char open,
                                         Split splitBy) {
  if (parent.children->size != 0) {
    parent.children->releaseAll();  // of an earlier attempt that ran out of memory
  }
  if (text.empty() || text.front() != open) {
    parent.Nullify();
  } else if (text.size() < 3) {
    return;
  } else if (parent.source.isIndexed() && JSONNodeAccess::isInSource(parent)) {
    splitBy(IndexedStructure(parent.source, text.substr(1)));
  } else {
    splitBy(ScannedStructure(text.substr(1)));
  }
}

}  // namespace

std::atomic<bool> JSONWorker::used_ascii_one{false};

[[gnu::always_inline]] inline JSONNode JSONWorker::rootOf(std::string_view text,
                                                          const JSONSource& source) {
  std::string_view comment;
  if (!text.empty() && text.front() == '#') {
    comment = commentsOf(text);
    text.remove_prefix(comment.size());
  }
  const char type = isEnclosed(text, '{', '}')   ? JSON_NODE
                    : isEnclosed(text, '[', ']') ? JSON_ARRAY
                                                 : JSON_NULL;
  if (type == JSON_NULL) {
    throw std::invalid_argument("");
  }
  JSONNode root = JSONNodeAccess::adopt(internalJSONNode::newInternal(type, {}, text, source));
  if (!comment.empty()) {
    setComment(JSONNodeAccess::body(root), comment);
  }
  return root;
}

JSONNode JSONWorker::parse(std::string_view text) {
  const JSONSource source = RemoveWhiteSpace(text, true);
  return rootOf(source.view(), source);
}

JSONNode JSONWorker::parse_unformatted(std::string_view text) {
  JSONSource source(text.size());
  if (!text.empty()) {
    std::memcpy(source.data(), text.data(), text.size());
  }
  source.setSize(text.size());
  return rootOf(source.view(), source);
}

JSONNode JSONWorker::_parse_unformatted(const char* begin, const char* end,
                                        const JSONSource& source) {
  return rootOf(between(begin, end), source);
}

template <char Separator>
std::size_t JSONWorker::FindNextRelevant(std::string_view text, std::size_t start) {
  if (start > text.size()) {
    return std::string_view::npos;
  }
  ScannedStructure structure(text.substr(start));
  const char* const found = nextRelevant<Separator>(structure);
  return found == nullptr ? std::string_view::npos : static_cast<std::size_t>(found - text.data());
}

template std::size_t JSONWorker::FindNextRelevant<','>(std::string_view, std::size_t);
template std::size_t JSONWorker::FindNextRelevant<':'>(std::string_view, std::size_t);

template <bool IsPlain>
[[gnu::always_inline]] inline void JSONWorker::NewNode(internalJSONNode& parent,
                                                       std::string_view name,
                                                       std::string_view value, bool inArray) {
  std::string_view comment;
  if constexpr (!IsPlain) {
    std::string_view& commented = inArray ? value : name;
    comment = commentsOf(commented);
    commented.remove_prefix(comment.size());
  }
  if (!inArray) {
    // The quotes around a name are removed by position, whatever is there: the caller left out
    // the closing one, and this is the opening one.
    name.remove_prefix(name.empty() ? 0 : 1);
  }
  parent.children->inc();
  internalJSONNode* child = nullptr;
  if constexpr (IsPlain) {
    // Most values are strings.
    child = isEnclosed(value, '"', '"')
                ? internalJSONNode::newInternal(JSON_STRING, name, value, parent.source)
                : newOther(name, value, parent.source);
  } else {
    child = newChild(parent, name, value);
  }
  // A new body's own handle: the parent belongs to the same document, or the body to none.
  parent.children->append(JSONNodeAccess::ownHandleFor(JSONNodeAccess::adopt(child)));
  if constexpr (!IsPlain) {
    // A parsed name is written back as it is, even when it held escapes: nameEncoded stays false.
    FixInto(child->name, child->name.view());
    if (!comment.empty()) {
      setComment(*child, comment);
    }
  }
}

template <typename Structure>
[[gnu::always_inline]] inline void JSONWorker::splitNode(internalJSONNode& parent,
                                                         std::string_view text,
                                                         Structure structure) {
  const char* const end = text.data() + text.size() - 1;
  for (const char* start = text.data() + 1;;) {
    const char* const colon = nextRelevant<':'>(structure);
    if (colon == nullptr) {
      parent.Nullify();
      return;
    }
    // Up to the byte before the colon (the closing quote), which is left out. There may be no
    // such byte: then the name is empty.
    const std::string_view name = between(start, colon > start ? colon - 1 : start);
    const char* const comma = nextRelevant<','>(structure);
    NewNode<Structure::kIsPlain>(parent, name, between(colon + 1, comma != nullptr ? comma : end),
                                 false);
    if (comma == nullptr) {
      return;
    }
    start = comma + 1;
  }
}

template <typename Structure>
[[gnu::always_inline]] inline void JSONWorker::splitArray(internalJSONNode& parent,
                                                          std::string_view text,
                                                          Structure structure) {
  const char* const end = text.data() + text.size() - 1;
  for (const char* start = text.data() + 1;;) {
    const char* const separator = nextRelevant<',', ':'>(structure);
    if (separator != nullptr && *separator == ':') {
      parent.Nullify();  // an array holds no members
      return;
    }
    NewNode<Structure::kIsPlain>(parent, {}, between(start, separator != nullptr ? separator : end),
                                 true);
    if (separator == nullptr) {
      return;
    }
    start = separator + 1;
  }
}

void JSONWorker::DoNode(internalJSONNode& parent, std::string_view text) {
  split(parent, text, '{', [&](auto structure) { splitNode(parent, text, structure); });
}

void JSONWorker::DoArray(internalJSONNode& parent, std::string_view text) {
  split(parent, text, '[', [&](auto structure) { splitArray(parent, text, structure); });
}
