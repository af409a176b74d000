#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

#include "json/_internal/Source/JSONNode.h"
#include "json/_internal/Source/JSONSource.h"

/// Parsing: text to nodes, and the escapes of strings in both directions.
///
/// Parsing is lenient. One pass compacts the text (white space dropped, comments turned into
/// "#...#" runs, an escaped quote hidden as backslash and 0x01); then only the shape of the root is
/// checked. Members and elements are split out when the container is first searched, by position:
/// what is malformed below the root mostly becomes null when it is read, and a comment anywhere but
/// in front of a member, an element or the root is part of what stands beside it.
class JSONWorker {
 public:
  /// The root of a text. Throws std::invalid_argument (no message) unless the text, without white
  /// space and leading comments, is enclosed in {} or []. Bytes that cannot be part of JSON cut the
  /// text off before that check. Zero bytes within strings are ordinary bytes.
  static JSONNode parse(std::string_view text);
  /// The same for a text as RemoveWhiteSpace(text, true) gives it.
  static JSONNode parse_unformatted(std::string_view text);

  /// The compacted text. With `escapeQuotes`, an escaped quote is hidden, so that every double
  /// quote left outside comments is a delimiter.
  static json_detail::JSONSource RemoveWhiteSpace(std::string_view text, bool escapeQuotes);
  /// The root of the compacted bytes [begin, end) of `source`.
  static JSONNode _parse_unformatted(const char* begin, const char* end,
                                     const json_detail::JSONSource& source);

  /// Splits the compacted text of an object or array, a slice of the parent's source, into children
  /// of `parent`, a parsed container of that type; nullifies it when the text has no such parts.
  static void DoNode(internalJSONNode& parent, std::string_view text);
  static void DoArray(internalJSONNode& parent, std::string_view text);

  /// The position of the first `Separator` at or after `start` that stands outside strings and
  /// brackets, or npos: also when a closing bracket comes first, or when a string or a bracket is
  /// not closed. Instances exist for the comma and the colon.
  template <char Separator>
  static std::size_t FindNextRelevant(std::string_view text, std::size_t start);

  /// The characters of a string's inner text. "\u00e9" gives the one byte E9: the last two digits.
  static std::string FixString(std::string_view text, bool& hadEscape);
  /// Appends the text of a string: escaped when `encoded`, else as it is.
  static void UnfixString(std::string_view text, bool encoded, std::string& output);
  /// The six-character escape of one byte: "\u00" and two upper-case hex digits.
  static std::string toUTF8(unsigned char byte);

  /// Whether a hidden quote was ever made in this process. Set and never
  /// cleared; atomic, because every thread may have trees of its own.
  static std::atomic<bool> used_ascii_one;
};

extern template std::size_t JSONWorker::FindNextRelevant<','>(std::string_view, std::size_t);
extern template std::size_t JSONWorker::FindNextRelevant<':'>(std::string_view, std::size_t);
