#pragma once

#include <pkcs11.h>

/// The functions of a token vendor's PKCS#11 module that the signing service calls, as pointers of
/// the module's own; null where the module could not be loaded or lacks one of them. The other
/// entries are always null.
///
/// The first call loads the module, which then stays loaded to the end of the process: vendor
/// modules start threads and do not survive being unloaded.
///
/// The module is the file named by the environment variable `SIGNING_HOST_PKCS11_MODULE`, else the
/// one compiled in; always that one in a build with SIGNING_HOST_FIXED_MODULE. Functions are taken
/// by the names that the file itself exports; where it does not export them all, from the list that
/// its `C_GetFunctionList` gives. When anything is missing, the reason is written to standard
/// error.
const CK_FUNCTION_LIST& tokenFunctions();
