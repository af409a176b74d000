// The standard PKCS#11 names, each handing its arguments to the loaded module unchanged. A program
// that brings its own C_* functions (a test) leaves this library out.
#include "token/TokenModule.h"

namespace {

/// Calls one function of the module; CKR_GENERAL_ERROR when there is no module.
template <typename Function, typename... Arguments>
CK_RV forward(Function TokenFunctions::*function, Arguments... arguments) {
  const Function target = tokenFunctions().*function;
  return target != nullptr ? target(arguments...) : CKR_GENERAL_ERROR;
}

}  // namespace

extern "C" {

CK_RV C_Initialize(CK_VOID_PTR arguments) {
  return forward(&TokenFunctions::initialize, arguments);
}

CK_RV C_Finalize(CK_VOID_PTR reserved) { return forward(&TokenFunctions::finalize, reserved); }

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  return forward(&TokenFunctions::getSlotList, tokenPresent, slots, count);
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
  return forward(&TokenFunctions::openSession, slot, flags, application, notify, session);
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return forward(&TokenFunctions::closeSession, session);
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  return forward(&TokenFunctions::login, session, user, pin, length);
}

CK_RV C_Logout(CK_SESSION_HANDLE session) { return forward(&TokenFunctions::logout, session); }

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  return forward(&TokenFunctions::findObjectsInit, session, attributes, count);
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maximum,
                    CK_ULONG_PTR count) {
  return forward(&TokenFunctions::findObjects, session, objects, maximum, count);
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return forward(&TokenFunctions::findObjectsFinal, session);
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  return forward(&TokenFunctions::getAttributeValue, session, object, attributes, count);
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
  return forward(&TokenFunctions::signInit, session, mechanism, key);
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR signatureLength) {
  return forward(&TokenFunctions::sign, session, data, length, signature, signatureLength);
}

}  // extern "C"
