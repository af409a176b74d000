#pragma once

#include <pkcs11.h>

/// The functions of a token vendor's PKCS#11 module that the signing service calls, as pointers of
/// the module's own; null where the module could not be loaded or does not have them.
struct TokenFunctions {
  decltype(&C_Initialize) initialize = nullptr;
  decltype(&C_Finalize) finalize = nullptr;
  decltype(&C_GetSlotList) getSlotList = nullptr;
  decltype(&C_OpenSession) openSession = nullptr;
  decltype(&C_CloseSession) closeSession = nullptr;
  decltype(&C_Login) login = nullptr;
  decltype(&C_Logout) logout = nullptr;
  decltype(&C_FindObjectsInit) findObjectsInit = nullptr;
  decltype(&C_FindObjects) findObjects = nullptr;
  decltype(&C_FindObjectsFinal) findObjectsFinal = nullptr;
  decltype(&C_GetAttributeValue) getAttributeValue = nullptr;
  decltype(&C_SignInit) signInit = nullptr;
  decltype(&C_Sign) sign = nullptr;
};

/// The module's functions. The first call loads the module, which then stays loaded to the end of
/// the process: vendor modules start threads and do not survive being unloaded.
///
/// The module is the file named by the environment variable `SIGNING_HOST_PKCS11_MODULE`, else the
/// one compiled in. Functions are taken by their exported names; where the file exports only
/// `C_GetFunctionList`, from that list. When anything is missing, the reason is written to standard
/// error and all pointers are null.
const TokenFunctions& tokenFunctions();
