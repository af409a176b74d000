#include "json/_internal/Source/JSONValidator.h"

#include <algorithm>

#include "json/_internal/Source/CharacterClass.h"
#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/NumberToString.h"

namespace {

bool take(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) {
    return false;
  }
  text.remove_prefix(expected.size());
  return true;
}

bool takeDigits(std::string_view& text, std::size_t count, bool (*isKind)(char)) {
  const std::string_view taken = text.substr(0, count);
  text.remove_prefix(taken.size());
  return taken.size() == count && std::ranges::all_of(taken, isKind);
}

/// False when a run is not closed.
bool takeComments(std::string_view& text) {
  while (take(text, "#")) {
    const std::size_t close = text.find('#');
    if (close == std::string_view::npos) {
      return false;
    }
    text.remove_prefix(close + 1);
  }
  return true;
}

/// What follows an opening bracket: parts with commas between, or none, and the closing bracket.
template <typename Part>
bool takeList(std::string_view& text, unsigned int depth, std::string_view close, Part takePart) {
  if (depth > JSONValidator::kMaxDepth) {
    return false;
  }
  if (take(text, close)) {
    return true;
  }
  do {
    if (!takeComments(text) || !takePart(text, depth)) {
      return false;
    }
  } while (take(text, ","));
  return take(text, close);
}

bool takeRoot(std::string_view& text) {
  if (!takeComments(text)) {
    return false;
  }
  if (take(text, "{")) {
    return JSONValidator::isValidObject(text, 1);
  }
  return take(text, "[") && JSONValidator::isValidArray(text, 1);
}

bool takeEscape(std::string_view& text) {
  constexpr std::string_view kSingle = "\x01\"/\\bfnrtv";
  if (take(text, "u")) {
    return takeDigits(text, 4, json_detail::isHexDigit);
  }
  if (take(text, "x")) {
    return takeDigits(text, 2, json_detail::isHexDigit);
  }
  if (!text.empty() && kSingle.find(text.front()) != std::string_view::npos) {
    text.remove_prefix(1);
    return true;
  }
  return takeDigits(text, 3, json_detail::isOctalDigit);
}

}  // namespace

bool JSONValidator::isValidRoot(std::string_view text) { return takeRoot(text) && text.empty(); }

bool JSONValidator::isValidPartialRoot(std::string_view text) { return takeRoot(text); }

bool JSONValidator::isValidObject(std::string_view& text, unsigned int depth) {
  return takeList(text, depth, "}", [](std::string_view& member, unsigned int at) {
    return take(member, "\"") && isValidNamedObject(member, at);
  });
}

bool JSONValidator::isValidArray(std::string_view& text, unsigned int depth) {
  return takeList(text, depth, "]", isValidMember);
}

bool JSONValidator::isValidNamedObject(std::string_view& text, unsigned int depth) {
  return isValidString(text) && take(text, ":") && isValidMember(text, depth);
}

bool JSONValidator::isValidMember(std::string_view& text, unsigned int depth) {
  if (take(text, "\"")) {
    return isValidString(text);
  }
  if (take(text, "{")) {
    return isValidObject(text, depth + 1);
  }
  if (take(text, "[")) {
    return isValidArray(text, depth + 1);
  }
  return take(text, jsonSingletonCONST_TRUE()) || take(text, jsonSingletonCONST_FALSE()) ||
         take(text, jsonSingletonCONST_NULL()) || isValidNumber(text);
}

bool JSONValidator::isValidString(std::string_view& text) {
  for (;;) {
    const std::size_t stop = text.find_first_of("\"\\");
    if (stop == std::string_view::npos) {
      return false;
    }
    text.remove_prefix(stop);
    if (take(text, "\"")) {
      return true;
    }
    text.remove_prefix(1);
    if (!takeEscape(text)) {
      return false;
    }
  }
}

bool JSONValidator::isValidNumber(std::string_view& text) {
  const std::size_t length = std::min(text.find_first_of(",]}"), text.size());
  if (!NumberToString::isNumeric(text.substr(0, length))) {
    return false;
  }
  text.remove_prefix(length);
  return true;
}
