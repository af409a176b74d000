#include "json/_internal/Source/JSONSingleton.h"

const std::string& jsonSingletonCONST_TRUE() {
  static const std::string text = "true";
  return text;
}

const std::string& jsonSingletonCONST_FALSE() {
  static const std::string text = "false";
  return text;
}

const std::string& jsonSingletonCONST_NULL() {
  static const std::string text = "null";
  return text;
}

const std::string& jsonSingletonEMPTY_STD_STRING() {
  static const std::string text;
  return text;
}

const std::string& jsonSingletonEMPTY_JSON_STRING() {
  static const std::string text;
  return text;
}

const std::string& jsonSingletonNEW_LINE() {
  static const std::string text = "\n";
  return text;
}

const std::string& jsonSingletonSINGLELINE_COMMENT() {
  static const std::string text = "//";
  return text;
}
