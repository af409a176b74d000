// Writing: nodes to text, compact or indented.

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "json/_internal/Source/JSONEscapes.h"
#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/JSONWorker.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::JSONOutput;

namespace {

/// Appends that many tabs.
void makeIndent(unsigned int level, JSONOutput& output) {
  char* const out = output.room(level);
  std::memset(out, '\t', level);
  output.advance(out + level);
}

/// Appends a line break and the indentation after it; nothing in the compact form.
void startLine(unsigned int level, JSONOutput& output) {
  if (level != internalJSONNode::kNotFormatted) {
    output.append('\n');
    makeIndent(level, output);
  }
}

void appendComment(std::string_view text, JSONOutput& output) {
  // "*/" would end the block before its end.
  for (std::size_t close = text.find("*/"); close != std::string_view::npos;
       close = text.find("*/")) {
    output.append(text.substr(0, close + 1));
    output.append(' ');
    text.remove_prefix(close + 1);
  }
  output.append(text);
}

/// Appends compacted text without the comment runs between its values, so that
/// what is written is JSON: a "#" run means something to this parser only.
void appendWithoutComments(std::string_view text, JSONOutput& output) {
  while (!text.empty()) {
    const std::size_t stop = std::min(text.find_first_of("\"#"), text.size());
    output.append(text.substr(0, stop));
    text.remove_prefix(stop);
    if (text.empty()) {
      return;
    }
    const std::size_t close = text.find(text.front(), 1);
    const std::size_t length = close == std::string_view::npos ? text.size() : close + 1;
    if (text.front() == '"' || close == std::string_view::npos) {
      output.append(text.substr(0, length));
    }
    text.remove_prefix(length);
  }
}

char openingBracket(const internalJSONNode& body) { return body.type == JSON_ARRAY ? '[' : '{'; }
char closingBracket(const internalJSONNode& body) { return body.type == JSON_ARRAY ? ']' : '}'; }

}  // namespace

[[gnu::always_inline]] inline void internalJSONNode::WriteName(bool formatted, bool arrayChild,
                                                               JSONOutput& output) const {
  if (arrayChild) {
    return;
  }
  if (formatted) {
    json_detail::appendBetween("\"", name.view(), nameEncoded, "\" : ", output);
  } else {
    json_detail::appendBetween("\"", name.view(), nameEncoded, "\":", output);
  }
}

void internalJSONNode::WriteComment(unsigned int level, JSONOutput& output) const {
  std::string_view lines = comment.view();
  if (level == kNotFormatted) {
    return;
  }
  startLine(level, output);
  if (lines.find('\n') == std::string_view::npos) {
    output.append(jsonSingletonSINGLELINE_COMMENT());
    output.append(lines);
  } else {
    output.append("/*");
    for (bool more = true; more;) {
      const std::size_t length = std::min(lines.find('\n'), lines.size());
      startLine(level + 1, output);
      appendComment(lines.substr(0, length), output);
      more = length < lines.size();
      lines.remove_prefix(more ? length + 1 : length);
    }
    startLine(level, output);
    output.append("*/");
  }
  startLine(level, output);  // the value stands on a line of its own
}

void internalJSONNode::DumpRawString(JSONOutput& output) const {
  const std::size_t start = output.length();
  if (source.facts().mayHoldComments) {
    appendWithoutComments(text.view(), output);
  } else {
    output.append(text.view());
  }
  if (JSONWorker::used_ascii_one.load(std::memory_order_relaxed)) {
    const std::span<char> written = output.writtenSince(start);
    std::replace(written.begin(), written.end(), '\x01', '"');
  }
}

// Writes a value as far as it goes without its children. True when there are
// children to write, and the closing bracket after them.
[[gnu::always_inline]] inline bool internalJSONNode::WriteValue(unsigned int level, bool arrayChild,
                                                                JSONOutput& output) {
  const bool formatted = level != kNotFormatted;
  if (!comment.view().empty()) {
    WriteComment(level, output);
  }
  if (formatted && isContainer()) {
    Fetch();  // may find out that this is null
  }
  WriteName(formatted, arrayChild, output);
  if (!fetched && (!formatted || type == JSON_STRING)) {
    DumpRawString(output);
    return false;
  }
  switch (type) {
    case JSON_ARRAY:
    case JSON_NODE:
      output.append(openingBracket(*this));
      if (size() != 0) {
        return true;
      }
      output.append(closingBracket(*this));
      return false;
    case JSON_STRING:
      json_detail::appendBetween("\"", text.view(), textEncoded, "\"", output);
      return false;
    default:
      output.append(text.view());
      return false;
  }
}

void internalJSONNode::Write(unsigned int level, bool arrayChild, JSONOutput& output) {
  if (WriteValue(level, arrayChild, output)) {
    WriteChildren(level, output);
    output.append(closingBracket(*this));
  }
}

// The containers on the way down are kept in a list instead of on the call
// stack: no tree is too deep to be written.
void internalJSONNode::WriteChildren(unsigned int level, JSONOutput& output) {
  struct Open {
    internalJSONNode* body;
    unsigned int next;  // the child to write next
  };
  const unsigned int step = level != kNotFormatted ? 1 : 0;  // the compact form has one level
  std::vector<Open> outer;
  Open current{this, 0};
  level += step;  // of the children
  for (;;) {
    jsonChildren& siblings = *current.body->children;
    if (current.next == siblings.size) {
      level -= step;
      startLine(level, output);
      if (outer.empty()) {
        return;
      }
      output.append(closingBracket(*current.body));
      current = outer.back();
      outer.pop_back();
      continue;
    }
    if (current.next != 0) {
      output.append(',');
    }
    startLine(level, output);
    internalJSONNode& child = JSONNodeAccess::body(*siblings.array[current.next]);
    ++current.next;
    if (child.WriteValue(level, current.body->type == JSON_ARRAY, output)) {
      outer.push_back(current);
      current = {&child, 0};
      level += step;
    }
  }
}
