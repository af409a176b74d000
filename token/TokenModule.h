#pragma once

#include <pkcs11.h>

#include <string>

/// Where a function of the standard stands in its list.
template <typename Function>
using TokenFunction = Function CK_FUNCTION_LIST::*;

/// A token vendor's PKCS#11 module: the file named by the environment variable
/// `SIGNING_HOST_PKCS11_MODULE`, else the one compiled in; always that one in a build with
/// SIGNING_HOST_FIXED_MODULE.
struct TokenModule {
  std::string path;
  /// Why the module cannot be used, in English; empty when it can.
  std::string fault;
  /// What signing needs, and C_GetInfo, C_GetSlotInfo and C_GetTokenInfo where the module has them,
  /// as pointers of the module's own. All null when there is a fault; the other entries always.
  CK_FUNCTION_LIST functions{};
};

/// The module. The first call loads it, and it then stays loaded to the end of the process: vendor
/// modules start threads and do not survive being unloaded.
///
/// Functions are taken by the names that the file itself exports; where it does not export all that
/// signing needs, from the list that its `C_GetFunctionList` gives. A fault is also written to
/// standard error.
const TokenModule& tokenModule();
