#include "token/TokenModule.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

/// Takes one function by its exported name; true when the module has it.
template <typename Function>
bool bindByName(void* module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(module, name));
  return function != nullptr;
}

bool bindExportedNames(void* module, TokenFunctions& functions) {
  return bindByName(module, "C_Initialize", functions.initialize) &&
         bindByName(module, "C_Finalize", functions.finalize) &&
         bindByName(module, "C_GetSlotList", functions.getSlotList) &&
         bindByName(module, "C_OpenSession", functions.openSession) &&
         bindByName(module, "C_CloseSession", functions.closeSession) &&
         bindByName(module, "C_Login", functions.login) &&
         bindByName(module, "C_Logout", functions.logout) &&
         bindByName(module, "C_FindObjectsInit", functions.findObjectsInit) &&
         bindByName(module, "C_FindObjects", functions.findObjects) &&
         bindByName(module, "C_FindObjectsFinal", functions.findObjectsFinal) &&
         bindByName(module, "C_GetAttributeValue", functions.getAttributeValue) &&
         bindByName(module, "C_SignInit", functions.signInit) &&
         bindByName(module, "C_Sign", functions.sign);
}

bool bindFunctionList(void* module, TokenFunctions& functions) {
  decltype(&C_GetFunctionList) getFunctionList = nullptr;
  CK_FUNCTION_LIST_PTR list = nullptr;
  if (!bindByName(module, "C_GetFunctionList", getFunctionList) ||
      getFunctionList(&list) != CKR_OK || list == nullptr) {
    return false;
  }
  functions = {list->C_Initialize,
               list->C_Finalize,
               list->C_GetSlotList,
               list->C_OpenSession,
               list->C_CloseSession,
               list->C_Login,
               list->C_Logout,
               list->C_FindObjectsInit,
               list->C_FindObjects,
               list->C_FindObjectsFinal,
               list->C_GetAttributeValue,
               list->C_SignInit,
               list->C_Sign};
  return functions.initialize && functions.finalize && functions.getSlotList &&
         functions.openSession && functions.closeSession && functions.login && functions.logout &&
         functions.findObjectsInit && functions.findObjects && functions.findObjectsFinal &&
         functions.getAttributeValue && functions.signInit && functions.sign;
}

std::string modulePath() {
  // Read once, before any other thread exists.
  const char* chosen = std::getenv("SIGNING_HOST_PKCS11_MODULE");  // NOLINT(concurrency-mt-unsafe)
  return chosen != nullptr && *chosen != '\0' ? chosen : DEFAULT_PKCS11_MODULE;
}

TokenFunctions load() {
  const std::string path = modulePath();
  if (path.empty()) {
    std::fputs("signing-host: no PKCS#11 module is configured; set SIGNING_HOST_PKCS11_MODULE\n",
               stderr);
    return {};
  }
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    std::fprintf(stderr, "signing-host: the PKCS#11 module cannot be loaded: %s\n",
                 dlerror());  // NOLINT(concurrency-mt-unsafe)
    return {};
  }
  TokenFunctions functions;
  if (bindExportedNames(module, functions) || bindFunctionList(module, functions)) {
    return functions;
  }
  std::fprintf(stderr, "signing-host: %s lacks PKCS#11 functions that signing needs\n",
               path.c_str());
  dlclose(module);
  return {};
}

}  // namespace

const TokenFunctions& tokenFunctions() {
  static const TokenFunctions functions = load();
  return functions;
}
