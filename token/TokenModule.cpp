#include "token/TokenModule.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>

namespace {

template <typename Function>
struct Entry {
  const char* name;
  TokenFunction<Function> function;
};
// Clang needs it said before version 17.
template <typename Function>
Entry(const char*, TokenFunction<Function>) -> Entry<Function>;

/// What signing needs of a module.
constexpr std::tuple kNeeded{
    Entry{"C_Initialize", &CK_FUNCTION_LIST::C_Initialize},
    Entry{"C_Finalize", &CK_FUNCTION_LIST::C_Finalize},
    Entry{"C_GetSlotList", &CK_FUNCTION_LIST::C_GetSlotList},
    Entry{"C_OpenSession", &CK_FUNCTION_LIST::C_OpenSession},
    Entry{"C_CloseSession", &CK_FUNCTION_LIST::C_CloseSession},
    Entry{"C_Login", &CK_FUNCTION_LIST::C_Login},
    Entry{"C_Logout", &CK_FUNCTION_LIST::C_Logout},
    Entry{"C_FindObjectsInit", &CK_FUNCTION_LIST::C_FindObjectsInit},
    Entry{"C_FindObjects", &CK_FUNCTION_LIST::C_FindObjects},
    Entry{"C_FindObjectsFinal", &CK_FUNCTION_LIST::C_FindObjectsFinal},
    Entry{"C_GetAttributeValue", &CK_FUNCTION_LIST::C_GetAttributeValue},
    Entry{"C_SignInit", &CK_FUNCTION_LIST::C_SignInit},
    Entry{"C_Sign", &CK_FUNCTION_LIST::C_Sign},
};

/// What only tells about the module, its readers and its tokens.
constexpr std::tuple kInforming{
    Entry{"C_GetInfo", &CK_FUNCTION_LIST::C_GetInfo},
    Entry{"C_GetSlotInfo", &CK_FUNCTION_LIST::C_GetSlotInfo},
    Entry{"C_GetTokenInfo", &CK_FUNCTION_LIST::C_GetTokenInfo},
};

/// The functions, each as `find` gives it for its entry; nothing when a needed one is null.
template <typename Find>
std::optional<CK_FUNCTION_LIST> collect(Find find) {
  CK_FUNCTION_LIST functions{};
  const auto take = [&](const auto& entry) {
    return (functions.*entry.function = find(entry)) != nullptr;
  };
  std::apply([&](const auto&... entry) { (take(entry), ...); }, kInforming);
  const bool complete =
      std::apply([&](const auto&... entry) { return (take(entry) && ...); }, kNeeded);
  return complete ? std::optional(functions) : std::nullopt;
}

/// True when the address lies in the module's own file, not in a library that the file links: a
/// module that stands in front of another one must not be passed by.
bool isOwn(void* module, void* address) {
  Dl_info unused{};
  link_map* own = nullptr;
  link_map* holder = nullptr;
  return dlinfo(module, RTLD_DI_LINKMAP, static_cast<void*>(&own)) == 0 &&
         dladdr1(address, &unused, reinterpret_cast<void**>(&holder), RTLD_DL_LINKMAP) != 0 &&
         holder == own;
}

std::optional<CK_FUNCTION_LIST> exportedNames(void* module) {
  return collect([module]<typename Function>(const Entry<Function>& entry) {
    void* address = dlsym(module, entry.name);
    return isOwn(module, address) ? reinterpret_cast<Function>(address) : nullptr;
  });
}

std::optional<CK_FUNCTION_LIST> functionList(void* module) {
  const auto getFunctionList =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"));
  CK_FUNCTION_LIST_PTR list = nullptr;
  try {
    if (getFunctionList == nullptr || getFunctionList(&list) != CKR_OK || list == nullptr) {
      return std::nullopt;
    }
  } catch (...) {
    return std::nullopt;
  }
  return collect([list](const auto& entry) { return list->*entry.function; });
}

std::string modulePath() {
  if (PKCS11_MODULE_IS_FIXED) {
    return DEFAULT_PKCS11_MODULE;
  }
  // Nothing in the process changes its environment.
  const char* chosen = std::getenv("SIGNING_HOST_PKCS11_MODULE");  // NOLINT(concurrency-mt-unsafe)
  return chosen != nullptr && *chosen != '\0' ? chosen : DEFAULT_PKCS11_MODULE;
}

/// A C++ runtime's part for exceptions gets ready at its first throw. A module that is linked with
/// a runtime of its own throws through that one, and the host's must be ready to catch.
void readyToCatch() {
  try {
    throw CKR_GENERAL_ERROR;
  } catch (CK_RV) {  // NOLINT(bugprone-empty-catch): thrown for the sake of throwing
  }
}

TokenModule load() {
  TokenModule module{modulePath(), "", {}};
  if (module.path.empty()) {
    module.fault = "no PKCS#11 module is configured";
    return module;
  }
  readyToCatch();
  void* library = dlopen(module.path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = dlerror();  // NOLINT(concurrency-mt-unsafe): no other thread loads
    module.fault = std::string("the PKCS#11 module cannot be loaded: ") + reason;
    return module;
  }
  for (const auto bind : {exportedNames, functionList}) {
    if (const std::optional<CK_FUNCTION_LIST> functions = bind(library)) {
      module.functions = *functions;
      return module;
    }
  }
  module.fault = module.path + " lacks PKCS#11 functions that signing needs";
  dlclose(library);
  return module;
}

}  // namespace

const TokenModule& tokenModule() {
  static const TokenModule module = [] {
    TokenModule loaded = load();
    if (!loaded.fault.empty()) {
      static_cast<void>(std::fprintf(stderr, "signing-host: %s\n", loaded.fault.c_str()));
    }
    return loaded;
  }();
  return module;
}
