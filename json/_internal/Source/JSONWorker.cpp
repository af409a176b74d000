#include "json/_internal/Source/JSONWorker.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::findAnyOf;
using json_detail::JSONSource;

namespace {

/// Takes the comment runs ("#...#", one after the other) from the front of a text. A run that is
/// not closed takes all that is left.
std::string_view takeComments(std::string_view& text) {
  if (text.empty() || text.front() != '#') {
    return {};
  }
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

std::string_view slice(std::string_view text, std::size_t from, std::size_t to) {
  return {text.data() + from, to - from};
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

}  // namespace

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
  const std::string_view comment = takeComments(text);
  const bool isEnclosed = !text.empty() && ((text.front() == '{' && text.back() == '}') ||
                                            (text.front() == '[' && text.back() == ']'));
  if (!isEnclosed) {
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
  const char* const end = text.data() + text.size();
  const char* at = text.data() + start;
  while (at != nullptr && at < end) {
    switch (*at) {
      case Separator:
        return static_cast<std::size_t>(at - text.data());
      case '"':
        at = behindString(at, end);
        break;
      case '[':
        at = behindGroup<'[', ']'>(at, end);
        break;
      case '{':
        at = behindGroup<'{', '}'>(at, end);
        break;
      case ']':
      case '}':
        return std::string_view::npos;
      default:
        ++at;
        break;
    }
  }
  return std::string_view::npos;
}

template std::size_t JSONWorker::FindNextRelevant<','>(std::string_view, std::size_t);
template std::size_t JSONWorker::FindNextRelevant<':'>(std::string_view, std::size_t);

void JSONWorker::NewNode(internalJSONNode& parent, std::string_view name, std::string_view value,
                         bool inArray) {
  const std::string_view comment = takeComments(inArray ? value : name);
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
  std::size_t start = 1;
  for (;;) {
    const std::size_t colon = FindNextRelevant<':'>(text, start);
    if (colon == std::string_view::npos) {
      parent.Nullify();
      return;
    }
    // Up to the byte before the colon (the closing quote), which is left out. There may be no
    // such byte: then the name is empty.
    const std::string_view name = slice(text, start, colon > start ? colon - 1 : start);
    const std::size_t comma = FindNextRelevant<','>(text, colon);
    const bool isLast = comma == std::string_view::npos;
    const std::size_t valueEnd = isLast ? text.size() - 1 : comma;
    NewNode(parent, name, slice(text, colon + 1, valueEnd), false);
    if (isLast) {
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
  std::size_t start = 1;
  for (;;) {
    const std::size_t comma = FindNextRelevant<','>(text, start);
    const bool isLast = comma == std::string_view::npos;
    const std::size_t elementEnd = isLast ? text.size() - 1 : comma;
    const std::string_view element = slice(text, start, elementEnd);
    if (FindNextRelevant<':'>(element, 0) != std::string_view::npos) {
      parent.Nullify();  // an array holds no members
      return;
    }
    NewNode(parent, {}, element, true);
    if (isLast) {
      return;
    }
    start = comma + 1;
  }
}
