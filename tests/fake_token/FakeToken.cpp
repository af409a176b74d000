// A PKCS#11 module that does what a script says and logs every call; README.md tells the script's
// statements and the log's lines.
#include <pkcs11.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Bytes.h"

namespace {

using Words = std::vector<std::string>;
using Object = std::map<CK_ATTRIBUTE_TYPE, std::string>;

/// The one session that there can be.
constexpr CK_SESSION_HANDLE kSession = 5;

std::string script;
std::vector<Words> statements;
std::vector<Object> objects;
std::map<std::string, unsigned long> occurrences;
bool sessionOpen = false;
bool loggedIn = false;
bool loginMissing = false;            ///< the one for the signature that was begun
std::vector<CK_OBJECT_HANDLE> found;  ///< what is left of the search

CK_ULONG number(const std::string& word) { return std::stoul(word, nullptr, 0); }

std::string bytesOf(CK_ULONG value) { return {reinterpret_cast<char*>(&value), sizeof value}; }

std::string unhex(const std::string& word) {
  std::string bytes;
  for (std::size_t at = 0; word != "-" && at < word.size(); at += 2) {
    bytes += static_cast<char>(std::stoul(word.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

void readScript() {
  const char* path = std::getenv("FAKE_TOKEN_SCRIPT");
  std::ifstream file(path == nullptr ? "" : path);
  if (std::string text{std::istreambuf_iterator<char>(file), {}}; text != script) {
    script = std::move(text);
    statements.clear();
    objects.clear();
    occurrences.clear();
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      const Words& all = statements.emplace_back(std::istream_iterator<std::string>(words),
                                                 std::istream_iterator<std::string>());
      if (line.starts_with("certificate ")) {
        objects.push_back({{CKA_CLASS, bytesOf(CKO_CERTIFICATE)},
                           {CKA_CERTIFICATE_TYPE, bytesOf(CKC_X_509)},
                           {CKA_ID, unhex(all.at(1))},
                           {CKA_VALUE, unhex(all.at(3))}});
      } else if (line.starts_with("key ")) {
        objects.push_back({{CKA_CLASS, bytesOf(CKO_PRIVATE_KEY)}, {CKA_ID, unhex(all.at(1))}});
        if (all.size() > 2)
          objects.back()[CKA_ALWAYS_AUTHENTICATE] = all[2] == "plain" ? '\0' : '\1';
      }
    }
  }
}

/// What follows these words in the last statement that begins with them.
std::optional<Words> said(const Words& beginning) {
  std::optional<Words> rest;
  for (const Words& words : statements) {
    const auto [stop, at] =
        std::mismatch(beginning.begin(), beginning.end(), words.begin(), words.end());
    if (stop == beginning.end()) rest.emplace(at, words.end());
  }
  return rest;
}

std::string setting(const std::string& name, const std::string& otherwise) {
  const auto words = said({name});
  return words ? words->at(0) : otherwise;
}

/// What a statement says of the present occurrence, if one is about it.
std::optional<std::string> told(const std::string& verb, const std::string& what) {
  auto words = said({verb, what, std::to_string(occurrences[what])});
  if (!words) words = said({verb, what, "*"});
  if (!words) return std::nullopt;
  return words->empty() ? "" : words->front();
}

CK_ULONG countToTell(const std::string& what, CK_ULONG count) {
  ++occurrences[what];
  const auto lie = told("lie", what);
  return lie ? number(*lie) : count;
}

std::vector<CK_SLOT_ID> slots() {
  std::vector<CK_SLOT_ID> numbers;
  for (const auto& word : said({"slots"}).value_or(Words{"1"})) numbers.push_back(number(word));
  return numbers;
}

template <typename Pointer>
std::string set(Pointer pointer) {
  return pointer == nullptr ? "null" : "set";
}

/// The values, a space before each.
template <typename... Values>
std::string listed(const Values&... values) {
  std::ostringstream text;
  ((text << ' ' << values), ...);
  return text.str();
}

/// One call: what the script wants of it, else `work`, which tells what it gives back.
template <typename Work>
CK_RV call(const std::string& function, const std::string& arguments, Work work) {
  ++occurrences[function];
  if (const auto text = told("print", function)) {
    dprintf(STDOUT_FILENO, "%s\n", text->c_str());
    std::getchar();
  }
  if (const auto status = told("exit", function)) std::exit(static_cast<int>(number(*status)));
  if (told("crash", function)) std::abort();
  while (told("hang", function)) pause();
  if (told("fork", function)) fork();
  if (told("interrupt", function) && sysv_signal(SIGALRM, [](int) {}) != SIG_ERR) alarm(1);
  std::string given;
  auto forced = told("fail", function);
  if (told("exhaust", function)) {
    try {
      std::string().resize(std::size_t{1} << 61U);
    } catch (const std::bad_alloc&) {
      forced = std::to_string(CKR_HOST_MEMORY);
    }
  }
  const bool throws = told("throw", function).has_value();
  const CK_RV value = forced ? number(*forced) : throws ? CKR_OK : work(given);
  if (const char* path = std::getenv("FAKE_TOKEN_LOG"); path != nullptr && function != "load") {
    std::ofstream(path, std::ios::app)
        << function << arguments << " ->" << listed(value) << given << '\n';
  }
  if (throws) throw std::runtime_error("thrown by the fake token");
  return value;
}

const CK_RV kLoaded = (readScript(), call("load", "", [](auto&) { return CKR_OK; }));

/// A call on the session, which must be open.
template <typename Work>
CK_RV onSession(const char* function, CK_SESSION_HANDLE session, const std::string& arguments,
                Work work) {
  return call(function, listed(session) + arguments, [&](std::string& given) -> CK_RV {
    return sessionOpen && session == kSession ? work(given) : CKR_SESSION_HANDLE_INVALID;
  });
}

CK_RV endSession(std::string& /*given*/) {
  sessionOpen = loggedIn = false;
  return CKR_OK;
}

/// Gives one attribute as the standard's C_GetAttributeValue does, or as the script's lies want.
CK_RV giveAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE& wanted) {
  const auto own = objects[object - 1].find(wanted.type);
  const CK_ULONG room = std::exchange(wanted.ulValueLen, CK_UNAVAILABLE_INFORMATION);
  if (own == objects[object - 1].end()) return CKR_ATTRIBUTE_TYPE_INVALID;
  const std::string& value = own->second;
  std::optional<Words> lie;
  for (const char* when : {"both", wanted.pValue == nullptr ? "asked" : "read"}) {
    const auto words = said({"lie", "length", std::to_string(wanted.type), when});
    if (object == 1 && words) lie = words;
  }
  if (wanted.pValue != nullptr) {
    if (!lie && room < value.size()) return CKR_BUFFER_TOO_SMALL;
    value.copy(static_cast<char*>(wanted.pValue), room);  // even a lie never writes outside
  }
  wanted.ulValueLen = lie ? number(lie->at(0)) : value.size();
  return CKR_OK;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

CK_RV C_Initialize(CK_VOID_PTR arguments) {
  readScript();
  return call("C_Initialize", listed(set(arguments)), [](auto&) { return CKR_OK; });
}

CK_RV C_Finalize(CK_VOID_PTR reserved) {
  return call("C_Finalize", listed(set(reserved)), endSession);
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
  const std::string text = listed(int{tokenPresent}, set(list), *count);
  return call("C_GetSlotList", text, [&](auto& given) {
    const std::vector<CK_SLOT_ID> own = slots();
    const bool tooSmall = list != nullptr && *count < own.size();
    if (list != nullptr && !tooSmall) std::copy(own.begin(), own.end(), list);
    *count = countToTell("slots", own.size());
    given = listed(*count);
    return tooSmall ? CKR_BUFFER_TOO_SMALL : CKR_OK;
  });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
  const std::string text = listed(slot, flags, set(application), set(notify));
  return call("C_OpenSession", text, [&](auto& given) {
    if (std::ranges::count(slots(), slot) == 0) return CKR_SLOT_ID_INVALID;
    *session = kSession;
    sessionOpen = true;
    given = listed(kSession);
    return CKR_OK;
  });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return onSession("C_CloseSession", session, "", endSession);
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  return onSession("C_Login", session, listed(user, length), [&](auto&) {
    if (user == CKU_CONTEXT_SPECIFIC && !loginMissing) return CKR_OPERATION_NOT_INITIALIZED;
    const std::string typed(reinterpret_cast<const char*>(pin), length);
    loggedIn = typed == setting("pin", typed);
    loginMissing = loginMissing && !(loggedIn && user == CKU_CONTEXT_SPECIFIC);
    return loggedIn ? CKR_OK : CKR_PIN_INCORRECT;
  });
}

CK_RV C_Logout(CK_SESSION_HANDLE session) {
  return onSession("C_Logout", session, "", [](auto&) {
    return std::exchange(loggedIn, false) ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
  });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text;
  Object wanted;
  for (auto& [type, bytes, length] : std::span(attributes, count)) {
    wanted[type].assign(static_cast<const char*>(bytes), length);
    text += listed(type) + "=" + test_support::hex(wanted[type]);
  }
  return onSession("C_FindObjectsInit", session, text, [&](auto&) {
    found.clear();
    for (CK_OBJECT_HANDLE handle = 1; handle <= objects.size(); ++handle) {
      const Object& own = objects[handle - 1];
      const bool matches = std::includes(own.begin(), own.end(), wanted.begin(), wanted.end());
      if (matches && (loggedIn || own.contains(CKA_VALUE))) found.push_back(handle);
    }
    const auto pretended = said({"lie", "search"});
    for (std::size_t at = 0; pretended && found.size() < number(pretended->at(0)); ++at) {
      found.push_back(found.at(at));
    }
    return CKR_OK;
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR handles, CK_ULONG maximum,
                    CK_ULONG_PTR count) {
  return onSession("C_FindObjects", session, listed(maximum), [&](auto& given) {
    const CK_ULONG next = std::min<CK_ULONG>(maximum, found.size());
    for (CK_ULONG at = 0; at < next; ++at) {
      handles[at] = found[at];
      given += listed(found[at]);
    }
    found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(next));
    *count = countToTell("found", next);
    given = listed(*count) + given;
    return CKR_OK;
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return onSession("C_FindObjectsFinal", session, "", [](auto&) { return CKR_OK; });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text = listed(object);
  const std::span all(attributes, count);
  for (auto& [type, bytes, length] : all) {
    text += listed(type) + "=" + set(bytes) + ":" + std::to_string(length);
  }
  return onSession("C_GetAttributeValue", session, text, [&](auto& given) {
    if (object == 0 || object > objects.size()) return CKR_OBJECT_HANDLE_INVALID;
    CK_RV result = CKR_OK;
    for (CK_ATTRIBUTE& attribute : all) {
      if (const CK_RV own = giveAttribute(object, attribute); own != CKR_OK) result = own;
      given += listed(attribute.type) + ":" + std::to_string(attribute.ulValueLen);
    }
    return result;
  });
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
  const std::string text =
      listed(mechanism->mechanism, set(mechanism->pParameter), mechanism->ulParameterLen, key);
  return onSession("C_SignInit", session, text, [&](auto&) {
    const Object::value_type ownLogin{CKA_ALWAYS_AUTHENTICATE, "\1"};
    loginMissing = std::ranges::count(objects.at(key - 1), ownLogin) != 0;
    return loggedIn ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
  });
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR room) {
  const std::string message(reinterpret_cast<const char*>(data), length);
  const std::string text = listed(test_support::hex(message), set(signature), *room);
  return onSession("C_Sign", session, text, [&](auto& given) {
    if (loginMissing) return CKR_USER_NOT_LOGGED_IN;
    const CK_ULONG own = number(setting("signature", "256"));
    const bool tooSmall = *room < own;
    *room = countToTell("signature", own);
    given = listed(*room);
    if (tooSmall) return CKR_BUFFER_TOO_SMALL;
    for (CK_ULONG at = 0; at < own; ++at) {
      signature[at] = static_cast<CK_BYTE>(at ^ (length == 0 ? 0U : data[at % length]));
    }
    return CKR_OK;
  });
}

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions{};
  functions.version = {2, 20};
  functions.C_Initialize = C_Initialize;
  functions.C_Finalize = C_Finalize;
  functions.C_GetFunctionList = C_GetFunctionList;
  functions.C_GetSlotList = C_GetSlotList;
  functions.C_OpenSession = C_OpenSession;
  functions.C_CloseSession = C_CloseSession;
  functions.C_Login = C_Login;
  functions.C_Logout = C_Logout;
  functions.C_FindObjectsInit = C_FindObjectsInit;
  functions.C_FindObjects = C_FindObjects;
  functions.C_FindObjectsFinal = C_FindObjectsFinal;
  functions.C_GetAttributeValue = C_GetAttributeValue;
  functions.C_SignInit = C_SignInit;
  functions.C_Sign = C_Sign;
  *list = &functions;
  readScript();
  return call("C_GetFunctionList", "", [](auto&) { return CKR_OK; });
}

}  // extern "C"
#pragma GCC visibility pop
