#include "json/_internal/Source/JSONWorker.h"

#include <stdexcept>

#include "json/_internal/Source/JSONCompaction.h"
#include "json/_internal/Source/JSONEscapes.h"
#include "json/_internal/Source/JSONStructure.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::JSONSource;

std::atomic<bool> JSONWorker::used_ascii_one{false};

JSONNode JSONWorker::parse(std::string_view text) {
  const JSONSource source = RemoveWhiteSpace(text, true);
  return _parse_unformatted(source.data(), source.data() + source.view().size(), source);
}

JSONNode JSONWorker::parse_unformatted(std::string_view text) {
  JSONSource source(text.size());
  json_detail::copyBytes(source.data(), text.data(), text.size());
  source.setText(text.size(), {});
  return _parse_unformatted(source.data(), source.data() + text.size(), source);
}

JSONSource JSONWorker::RemoveWhiteSpace(std::string_view text, bool escapeQuotes) {
  JSONSource source = json_detail::compacted(text, escapeQuotes);
  if (source.facts().holdsHiddenQuotes) {
    used_ascii_one.store(true, std::memory_order_relaxed);
  }
  return source;
}

JSONNode JSONWorker::_parse_unformatted(const char* begin, const char* end,
                                        const JSONSource& source) {
  std::string_view text = json_detail::between(begin, end);
  const std::string_view comments = json_detail::commentsOf(text);
  text.remove_prefix(comments.size());
  const char type = json_detail::isEnclosed(text, '{', '}')   ? JSON_NODE
                    : json_detail::isEnclosed(text, '[', ']') ? JSON_ARRAY
                                                              : JSON_NULL;
  if (type == JSON_NULL) {
    throw std::invalid_argument("");
  }
  JSONNode root =
      internalJSONNode::newParsed(type, {}, text, source, internalJSONNode::Home::kDocument);
  if (!comments.empty()) {
    JSONNodeAccess::body(root).comment.assign(json_detail::commentText(comments));
  }
  return root;
}

void JSONWorker::DoNode(internalJSONNode& parent, std::string_view text) { parent.FetchNode(text); }

void JSONWorker::DoArray(internalJSONNode& parent, std::string_view text) {
  parent.FetchArray(text);
}

template <char Separator>
std::size_t JSONWorker::FindNextRelevant(std::string_view text, std::size_t start) {
  if (start > text.size()) {
    return std::string_view::npos;
  }
  json_detail::ScannedStructure structure(text.substr(start));
  const char* const found = json_detail::nextRelevant<Separator>(structure);
  return found == nullptr ? std::string_view::npos : static_cast<std::size_t>(found - text.data());
}

template std::size_t JSONWorker::FindNextRelevant<','>(std::string_view, std::size_t);
template std::size_t JSONWorker::FindNextRelevant<':'>(std::string_view, std::size_t);

std::string JSONWorker::FixString(std::string_view text, bool& hadEscape) {
  return json_detail::unescaped(text, hadEscape);
}

void JSONWorker::UnfixString(std::string_view text, bool encoded, std::string& output) {
  json_detail::JSONOutput written(text.size());
  json_detail::appendBetween("", text, encoded, "", written);
  output += written.text();
}

std::string JSONWorker::toUTF8(unsigned char byte) { return json_detail::unicodeEscape(byte); }
