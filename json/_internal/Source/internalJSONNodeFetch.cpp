// Fetching: how a body that the parser made turns its source text into children or characters.

#include "json/_internal/Source/JSONEscapes.h"
#include "json/_internal/Source/JSONStructure.h"
#include "json/_internal/Source/internalJSONNode.h"

namespace {

bool hasEscape(std::string_view text) { return text.find('\\') != std::string_view::npos; }

/// Makes an escaped text its characters, without the bytes at its ends. Seldom needed, and kept out
/// of what is.
[[gnu::noinline]] void unescape(json_detail::JSONText& text, std::size_t ends) {
  bool hadEscape = false;
  const std::string_view inner = text.view().substr(ends, text.view().size() - 2 * ends);
  const std::string characters = json_detail::unescaped(inner, hadEscape);
  text.assign(characters);
}

[[gnu::noinline]] void setComment(json_detail::JSONText& comment, std::string_view runs) {
  comment.assign(json_detail::commentText(runs));
}

}  // namespace

void internalJSONNode::FetchNow() {
  switch (type) {
    case JSON_STRING:
      // The quotes go last: where memory runs out, the next attempt meets them again.
      if (source.facts().mayHoldEscapes && hasEscape(text.view())) {
        unescape(text, 1);
        textEncoded = true;
      } else {
        text.dropEnds();
      }
      break;
    case JSON_NUMBER:
      value = NumberToString::_atof(text.view());
      break;
    case JSON_ARRAY:
      return FetchArray(text.view());
    default:
      return FetchNode(text.view());
  }
  fetched = true;
}

/// Makes the child of a part of the text.
// NOLINTNEXTLINE(readability-make-member-function-const): the children are the body's own.
[[gnu::always_inline]] inline void internalJSONNode::NewNode(std::string_view childName,
                                                             std::string_view childValue,
                                                             std::string_view comments) {
  children->inc();
  // A document's value makes its children once. Copies of it may make theirs
  // any number of times while the document lives.
  JSONNode child = newParsed(json_detail::typeOf(childValue), childName, childValue, source, home);
  internalJSONNode& body = JSONNodeAccess::body(child);
  if (source.facts().mayHoldEscapes && hasEscape(body.name.view())) {
    // nameEncoded stays false: a name that had escapes is written without them from now on.
    unescape(body.name, 0);
  }
  if (!comments.empty()) {
    setComment(body.comment, comments);
  }
  children->append(JSONNode::newJSONNode(std::move(child)));
}

template <typename Split>
void internalJSONNode::split(std::string_view whole, char open, char close, Split splitBy) {
  if (children->size != 0) {
    children->releaseAll();  // of an earlier attempt that ran out of memory
  }
  const bool isWhole =
      json_detail::isEnclosed(whole, open, close) &&
      (whole.size() == 2 ||
       (source.facts().isIndexed ? splitBy(json_detail::IndexedStructure(source, whole.substr(1)))
                                 : splitBy(json_detail::ScannedStructure(whole.substr(1)))));
  if (isWhole) {
    text.clear();
    fetched = true;
  } else {
    Nullify();
  }
}

// Not inlined: reading a value then needs no large stack frame.
[[gnu::noinline]] void internalJSONNode::FetchNode(std::string_view whole) {
  split(whole, '{', '}', [&](auto structure) {
    return json_detail::splitNode(
        whole, structure, [this](std::string_view named, std::string_view valued) {
          const std::string_view comments = json_detail::commentsOf(named);
          named.remove_prefix(comments.size());
          // The quotes are removed by position, whatever is there.
          named.remove_prefix(named.empty() ? 0 : 1);
          NewNode(named, valued, comments);
        });
  });
}

[[gnu::noinline]] void internalJSONNode::FetchArray(std::string_view whole) {
  split(whole, '[', ']', [&](auto structure) {
    return json_detail::splitArray(
        whole, structure, [this](std::string_view, std::string_view valued) {
          const std::string_view comments = json_detail::commentsOf(valued);
          valued.remove_prefix(comments.size());
          NewNode({}, valued, comments);
        });
  });
}
