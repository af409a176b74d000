#include "json/_internal/Source/JSONSingleton.h"

namespace {

template <char... Characters>
const std::string& text() {
  static const std::string built{Characters...};
  return built;
}

}  // namespace

const std::string& jsonSingletonCONST_TRUE() { return text<'t', 'r', 'u', 'e'>(); }
const std::string& jsonSingletonCONST_FALSE() { return text<'f', 'a', 'l', 's', 'e'>(); }
const std::string& jsonSingletonCONST_NULL() { return text<'n', 'u', 'l', 'l'>(); }
const std::string& jsonSingletonEMPTY_STD_STRING() { return text<>(); }
const std::string& jsonSingletonEMPTY_JSON_STRING() { return text<>(); }
const std::string& jsonSingletonNEW_LINE() { return text<'\n'>(); }
const std::string& jsonSingletonSINGLELINE_COMMENT() { return text<'/', '/'>(); }
