#include "json/_internal/Source/JSONWorker.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::findAnyOf;
using json_detail::FreeList;
using json_detail::JSONSource;

namespace {

bool startsWithComment(std::string_view text) { return !text.empty() && text.front() == '#'; }

/// Takes the comment runs ("#...#", one after the other) from the front of a text. A run that is
/// not closed takes all that is left.
std::string_view takeComments(std::string_view& text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] == '#') {
    const std::size_t close = text.find('#', length + 1);
    length = close == std::string_view::npos ? text.size() : close + 1;
  }
  const std::string_view runs = text.substr(0, length);
  text.remove_prefix(length);
  return runs;
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

/// Behind the string whose opening quote is at `at`; null when it is not closed.
inline const char* behindString(const char* at, const char* end) {
  const char* const quote = findAnyOf<'"'>(at + 1, end);
  return quote == end ? nullptr : quote + 1;
}

/// Behind the bracket that matches the one at `at`; null when there is none. Other kinds of
/// brackets do not count.
template <char Open, char Close>
const char* behindGroup(const char* at, const char* end) {
  std::size_t depth = 1;
  ++at;
  while (at != nullptr && (at = findAnyOf<'"', Open, Close>(at, end)) != end) {
    switch (*at) {
      case '"':
        at = behindString(at, end);
        break;
      case Open:
        ++depth;
        ++at;
        break;
      default:
        ++at;
        if (--depth == 0) {
          return at;
        }
        break;
    }
  }
  return nullptr;
}

/// FindNextRelevant() with pointers; null when there is none.
template <char Separator>
[[gnu::always_inline]] inline const char* nextRelevant(const char* at, const char* end) {
  while (at != end) {
    // The two usual bytes are tested for apart: foreseen better than one jump for all.
    if (*at == Separator) {
      return at;
    }
    if (*at == '"') {
      at = behindString(at, end);
    } else if (*at == '[') {
      at = behindGroup<'[', ']'>(at, end);
    } else if (*at == '{') {
      at = behindGroup<'{', '}'>(at, end);
    } else if (*at == ']' || *at == '}') {
      return nullptr;
    } else {
      ++at;
    }
    if (at == nullptr) {
      return nullptr;
    }
  }
  return nullptr;
}

bool isEnclosed(std::string_view text, char open, char close) {
  return text.size() >= 2 && text.front() == open && text.back() == close;
}

/// The type of a value that is no string.
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

/// The type that a value's text tells by its first byte and its last; null when it is malformed.
inline char typeOf(std::string_view value) {
  return isEnclosed(value, '"', '"') ? JSON_STRING : typeOfOther(value);
}

std::string_view between(const char* from, const char* to) {
  return {from, static_cast<std::size_t>(to - from)};
}

}  // namespace

[[gnu::always_inline]] inline internalJSONNode* internalJSONNode::newInternal(
    std::string_view name, std::string_view value, const JSONSource& source) {
  const char type = typeOf(value);
  const bool isFetched = type == JSON_NULL || type == JSON_BOOL;
  const std::string_view text = type == JSON_NULL ? jsonSingletonCONST_NULL() : value;
  auto* const body = ::new (FreeList<internalJSONNode>::take())
      internalJSONNode(static_cast<unsigned char>(type), name, text, isFetched, source);
  JSONNode owner = JSONNodeAccess::adopt(body);
  // A parsed name is written back as it is, even when it held escapes: nameEncoded stays false.
  if (source.mayHoldEscapes()) {
    JSONWorker::FixInto(body->name, name, source);
  }
  if (type == JSON_BOOL) {
    body->value = value.front() == 't' ? 1 : 0;
  } else if (type >= JSON_ARRAY) {
    body->makeChildren();
  }
  return JSONNodeAccess::release(std::move(owner));
}

bool JSONWorker::used_ascii_one = false;

JSONNode JSONWorker::parse(std::string_view text) {
  const JSONSource source = RemoveWhiteSpace(text, true);
  const std::string_view compact = source.view();
  return _parse_unformatted(compact.data(), compact.data() + compact.size(), source);
}

JSONNode JSONWorker::parse_unformatted(std::string_view text) {
  JSONSource source(text.size());
  if (!text.empty()) {
    std::memcpy(source.data(), text.data(), text.size());
  }
  source.setSize(text.size());
  return _parse_unformatted(source.data(), source.data() + text.size(), source);
}

JSONNode JSONWorker::_parse_unformatted(const char* begin, const char* end,
                                        const JSONSource& source) {
  std::string_view text(begin, static_cast<std::size_t>(end - begin));
  const std::string_view comment =
      startsWithComment(text) ? takeComments(text) : std::string_view();
  if (!isEnclosed(text, '{', '}') && !isEnclosed(text, '[', ']')) {
    throw std::invalid_argument("");
  }
  JSONNode root = JSONNodeAccess::adopt(internalJSONNode::newInternal({}, text, source));
  if (!comment.empty()) {
    setComment(JSONNodeAccess::body(root), comment);
  }
  return root;
}

template <char Separator>
std::size_t JSONWorker::FindNextRelevant(std::string_view text, std::size_t start) {
  if (start > text.size()) {
    return std::string_view::npos;
  }
  const char* const found = nextRelevant<Separator>(text.data() + start, text.data() + text.size());
  return found == nullptr ? std::string_view::npos : static_cast<std::size_t>(found - text.data());
}

template std::size_t JSONWorker::FindNextRelevant<','>(std::string_view, std::size_t);
template std::size_t JSONWorker::FindNextRelevant<':'>(std::string_view, std::size_t);

[[gnu::always_inline]] inline void JSONWorker::NewNode(internalJSONNode& parent,
                                                       std::string_view name,
                                                       std::string_view value, bool inArray) {
  std::string_view& commented = inArray ? value : name;
  const std::string_view comment =
      startsWithComment(commented) ? takeComments(commented) : std::string_view();
  if (!inArray) {
    // The quotes around a name are removed by position, whatever is there: the caller left out
    // the closing one, and this is the opening one.
    name.remove_prefix(name.empty() ? 0 : 1);
  }
  parent.children->inc();
  JSONNode child = JSONNodeAccess::adopt(internalJSONNode::newInternal(name, value, parent.source));
  if (!comment.empty()) {
    setComment(JSONNodeAccess::body(child), comment);
  }
  parent.children->append(JSONNodeAccess::newHandle(std::move(child)));
}

void JSONWorker::DoNode(internalJSONNode& parent, std::string_view text) {
  if (text.empty() || text.front() != '{') {
    parent.Nullify();
    return;
  }
  if (text.size() < 3) {
    return;
  }
  const char* const end = text.data() + text.size();
  for (const char* start = text.data() + 1;;) {
    const char* const colon = nextRelevant<':'>(start, end);
    if (colon == nullptr) {
      parent.Nullify();
      return;
    }
    // Up to the byte before the colon (the closing quote), which is left out. There may be no
    // such byte: then the name is empty.
    const std::string_view name = between(start, colon > start ? colon - 1 : start);
    const char* const comma = nextRelevant<','>(colon + 1, end);
    NewNode(parent, name, between(colon + 1, comma != nullptr ? comma : end - 1), false);
    if (comma == nullptr) {
      return;
    }
    start = comma + 1;
  }
}

void JSONWorker::DoArray(internalJSONNode& parent, std::string_view text) {
  if (text.empty() || text.front() != '[') {
    parent.Nullify();
    return;
  }
  if (text.size() < 3) {
    return;
  }
  const char* const end = text.data() + text.size();
  for (const char* start = text.data() + 1;;) {
    const char* const comma = nextRelevant<','>(start, end);
    const std::string_view element = between(start, comma != nullptr ? comma : end - 1);
    if (FindNextRelevant<':'>(element, 0) != std::string_view::npos) {
      parent.Nullify();  // an array holds no members
      return;
    }
    NewNode(parent, {}, element, true);
    if (comma == nullptr) {
      return;
    }
    start = comma + 1;
  }
}
