#pragma once

#include <string_view>

#include "json/_internal/Source/JSONSource.h"

namespace json_detail {

/// Stage one of parsing: the text without white space, with comments as "#...#" runs and, with
/// `hideQuotes`, with escaped quotes as backslash and 0x01. Indexed when it was plain.
JSONSource compacted(std::string_view text, bool hideQuotes);

}  // namespace json_detail
