// The standard PKCS#11 names, each handing its arguments to the loaded module unchanged. A program
// that brings its own C_* functions (a test) leaves this library out.
#include "token/TokenModule.h"

namespace {

/// Calls one function of the module. CKR_GENERAL_ERROR when there is no module, and when the
/// module, written in C++, lets an exception out: nothing thrown there goes further.
template <typename Function, typename... Arguments>
CK_RV forward(TokenFunction<Function> function, Arguments... arguments) {
  const Function target = tokenModule().functions.*function;
  try {
    return target != nullptr ? target(arguments...) : CKR_GENERAL_ERROR;
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
}

}  // namespace

extern "C" {

CK_RV C_Initialize(CK_VOID_PTR arguments) {
  return forward(&CK_FUNCTION_LIST::C_Initialize, arguments);
}

CK_RV C_Finalize(CK_VOID_PTR reserved) { return forward(&CK_FUNCTION_LIST::C_Finalize, reserved); }

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  return forward(&CK_FUNCTION_LIST::C_GetSlotList, tokenPresent, slots, count);
}

CK_RV C_GetInfo(CK_INFO_PTR info) { return forward(&CK_FUNCTION_LIST::C_GetInfo, info); }

CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info) {
  return forward(&CK_FUNCTION_LIST::C_GetSlotInfo, slot, info);
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
  return forward(&CK_FUNCTION_LIST::C_GetTokenInfo, slot, info);
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
  return forward(&CK_FUNCTION_LIST::C_OpenSession, slot, flags, application, notify, session);
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return forward(&CK_FUNCTION_LIST::C_CloseSession, session);
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  return forward(&CK_FUNCTION_LIST::C_Login, session, user, pin, length);
}

CK_RV C_Logout(CK_SESSION_HANDLE session) { return forward(&CK_FUNCTION_LIST::C_Logout, session); }

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  return forward(&CK_FUNCTION_LIST::C_FindObjectsInit, session, attributes, count);
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maximum,
                    CK_ULONG_PTR count) {
  return forward(&CK_FUNCTION_LIST::C_FindObjects, session, objects, maximum, count);
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return forward(&CK_FUNCTION_LIST::C_FindObjectsFinal, session);
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  return forward(&CK_FUNCTION_LIST::C_GetAttributeValue, session, object, attributes, count);
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
  return forward(&CK_FUNCTION_LIST::C_SignInit, session, mechanism, key);
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR signatureLength) {
  return forward(&CK_FUNCTION_LIST::C_Sign, session, data, length, signature, signatureLength);
}

}  // extern "C"
