#pragma once

#include <string_view>

/// Stricter checks of compacted text (see JSONWorker::RemoveWhiteSpace()), which
/// JSONWorker::parse() does not apply: values are strings, numbers (as NumberToString::isNumeric()
/// has it, so not quite RFC 8259), "true", "false", "null", objects and arrays; names are strings;
/// escapes are complete. Comment runs may stand where the parser looks for them.
///
/// Each check takes its part from the front of `text` and returns true, or returns false and leaves
/// `text` somewhere before the fault. `depth` counts the containers around the part; text nested
/// deeper than kMaxDepth is not valid, so that no text can exhaust the stack.
class JSONValidator {
 public:
  static constexpr unsigned int kMaxDepth = 512;

  /// The whole text is one array or object.
  static bool isValidRoot(std::string_view text);
  /// The text starts with a complete array or object.
  static bool isValidPartialRoot(std::string_view text);
  /// The members of an object, from after its "{" to after its "}".
  static bool isValidObject(std::string_view& text, unsigned int depth);
  /// The elements of an array, from after its "[" to after its "]".
  static bool isValidArray(std::string_view& text, unsigned int depth);
  /// A name and its value, from after the opening quote of the name.
  static bool isValidNamedObject(std::string_view& text, unsigned int depth);
  /// A value of any kind.
  static bool isValidMember(std::string_view& text, unsigned int depth);
  /// The rest of a string, from after its opening quote.
  static bool isValidString(std::string_view& text);
  static bool isValidNumber(std::string_view& text);
};
