#pragma once

#include <string>

// The texts every part of the library shares. Each is built on first use, once,
// also when several threads get there together, and lives until the process
// exits.

/// "true"
const std::string& jsonSingletonCONST_TRUE();
/// "false"
const std::string& jsonSingletonCONST_FALSE();
/// "null"
const std::string& jsonSingletonCONST_NULL();
/// The empty text, for values of the standard string type.
const std::string& jsonSingletonEMPTY_STD_STRING();
/// The empty text, for the library's own texts.
const std::string& jsonSingletonEMPTY_JSON_STRING();
/// The line break of formatted output.
const std::string& jsonSingletonNEW_LINE();
/// What opens a one-line comment in formatted output.
const std::string& jsonSingletonSINGLELINE_COMMENT();
