#include "json/_internal/Source/JSONStructure.h"

#include <algorithm>

#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/NumberToString.h"

namespace json_detail {

std::string_view commentRuns(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] == '#') {
    const std::size_t close = text.find('#', length + 1);
    length = close == std::string_view::npos ? text.size() : close + 1;
  }
  return text.substr(0, length);
}

std::string commentText(std::string_view runs) {
  std::string comment;
  while (!runs.empty()) {
    const std::size_t close = std::min(runs.find('#', 1), runs.size());
    comment += runs.substr(1, close - 1);
    runs.remove_prefix(std::min(close + 1, runs.size()));
    comment += runs.empty() ? "" : "\n";
  }
  return comment;
}

char typeOfOther(std::string_view value) {
  if (value.empty()) {
    return JSON_NULL;
  }
  switch (value.front()) {
    case '[':
      return isEnclosed(value, '[', ']') ? JSON_ARRAY : JSON_NULL;
    case '{':
      return isEnclosed(value, '{', '}') ? JSON_NODE : JSON_NULL;
    case 't':
      return value == jsonSingletonCONST_TRUE() ? JSON_BOOL : JSON_NULL;
    case 'f':
      return value == jsonSingletonCONST_FALSE() ? JSON_BOOL : JSON_NULL;
    default:
      return NumberToString::isNumeric(value) ? JSON_NUMBER : JSON_NULL;
  }
}

}  // namespace json_detail
