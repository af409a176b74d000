#pragma once

#include <string>

// The texts every part of the library shares. Each is built on first use, once, also when several
// threads get there together, and lives until the process exits.

namespace json_detail {

template <char... Characters>
const std::string& sharedText() {
  static const std::string built{Characters...};
  return built;
}

}  // namespace json_detail

inline const std::string& jsonSingletonCONST_TRUE() {
  return json_detail::sharedText<'t', 'r', 'u', 'e'>();
}
inline const std::string& jsonSingletonCONST_FALSE() {
  return json_detail::sharedText<'f', 'a', 'l', 's', 'e'>();
}
inline const std::string& jsonSingletonCONST_NULL() {
  return json_detail::sharedText<'n', 'u', 'l', 'l'>();
}
/// The empty text, for values of the standard string type.
inline const std::string& jsonSingletonEMPTY_STD_STRING() { return json_detail::sharedText<>(); }
/// The empty text, for the library's own texts.
inline const std::string& jsonSingletonEMPTY_JSON_STRING() { return json_detail::sharedText<>(); }
/// The line break of formatted output.
inline const std::string& jsonSingletonNEW_LINE() { return json_detail::sharedText<'\n'>(); }
/// What opens a one-line comment in formatted output.
inline const std::string& jsonSingletonSINGLELINE_COMMENT() {
  return json_detail::sharedText<'/', '/'>();
}
