#include "token/TokenModule.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void complain(const std::string& reason) {
  static_cast<void>(std::fprintf(stderr, "signing-host: %s\n", reason.c_str()));
}

/// Takes one function by its exported name; null where the module does not have it.
template <typename Function>
void bind(void* module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(module, name));
}

TokenFunctions bindExportedNames(void* module) {
  TokenFunctions functions;
  bind(module, "C_Initialize", functions.initialize);
  bind(module, "C_Finalize", functions.finalize);
  bind(module, "C_GetSlotList", functions.getSlotList);
  bind(module, "C_OpenSession", functions.openSession);
  bind(module, "C_CloseSession", functions.closeSession);
  bind(module, "C_Login", functions.login);
  bind(module, "C_Logout", functions.logout);
  bind(module, "C_FindObjectsInit", functions.findObjectsInit);
  bind(module, "C_FindObjects", functions.findObjects);
  bind(module, "C_FindObjectsFinal", functions.findObjectsFinal);
  bind(module, "C_GetAttributeValue", functions.getAttributeValue);
  bind(module, "C_SignInit", functions.signInit);
  bind(module, "C_Sign", functions.sign);
  return functions;
}

TokenFunctions bindFunctionList(void* module) {
  decltype(&C_GetFunctionList) getFunctionList = nullptr;
  CK_FUNCTION_LIST_PTR list = nullptr;
  bind(module, "C_GetFunctionList", getFunctionList);
  if (getFunctionList == nullptr || getFunctionList(&list) != CKR_OK || list == nullptr) {
    return {};
  }
  return {list->C_Initialize,
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
}

bool isComplete(const TokenFunctions& functions) {
  return functions.initialize != nullptr && functions.finalize != nullptr &&
         functions.getSlotList != nullptr && functions.openSession != nullptr &&
         functions.closeSession != nullptr && functions.login != nullptr &&
         functions.logout != nullptr && functions.findObjectsInit != nullptr &&
         functions.findObjects != nullptr && functions.findObjectsFinal != nullptr &&
         functions.getAttributeValue != nullptr && functions.signInit != nullptr &&
         functions.sign != nullptr;
}

std::string modulePath() {
  // Read once, before any other thread exists.
  const char* chosen = std::getenv("SIGNING_HOST_PKCS11_MODULE");  // NOLINT(concurrency-mt-unsafe)
  return chosen != nullptr && *chosen != '\0' ? chosen : DEFAULT_PKCS11_MODULE;
}

TokenFunctions load() {
  const std::string path = modulePath();
  if (path.empty()) {
    complain("no PKCS#11 module is configured; set SIGNING_HOST_PKCS11_MODULE");
    return {};
  }
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* reason = dlerror();  // NOLINT(concurrency-mt-unsafe): the host has one thread
    complain(std::string("the PKCS#11 module cannot be loaded: ") + reason);
    return {};
  }
  for (const auto bindFunctions : {bindExportedNames, bindFunctionList}) {
    if (const TokenFunctions functions = bindFunctions(module); isComplete(functions)) {
      return functions;
    }
  }
  complain(path + " lacks PKCS#11 functions that signing needs");
  dlclose(module);
  return {};
}

}  // namespace

const TokenFunctions& tokenFunctions() {
  static const TokenFunctions functions = load();
  return functions;
}
