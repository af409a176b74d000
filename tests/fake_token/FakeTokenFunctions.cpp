// The C_* functions of the fake token: arguments into the log, the script's will, then a real
// module's behaviour.
#include <algorithm>
#include <span>
#include <sstream>
#include <utility>

#include "tests/fake_token/FakeToken.h"
#include "tests/support/Hex.h"

namespace {

std::string hex(const void* bytes, CK_ULONG length) {
  if (bytes == nullptr) return "";
  return test_support::hex({static_cast<const char*>(bytes), length});
}

std::string hexNumber(CK_ULONG value) {
  std::ostringstream text;
  text << "0x" << std::hex << value;
  return text.str();
}

std::string buffer(const void* pointer, CK_ULONG length) {
  return (pointer == nullptr ? "null:" : "buffer:") + std::to_string(length);
}

const char* set(bool isSet) { return isSet ? "set" : "null"; }

/// " name=value name=value ..."
template <typename Value, typename... Further>
std::string fields(const std::string& name, const Value& value, const Further&... further) {
  std::ostringstream text;
  text << ' ' << name << '=' << value;
  if constexpr (sizeof...(further) > 0) text << fields(further...);
  return text.str();
}

/// One call: `work` gets the token and the text to which it adds what it gave back.
template <typename Work>
CK_RV call(const std::string& function, const std::string& arguments, Work work) {
  FakeToken& token = FakeToken::instance();
  std::string given;
  const bool isFirst = function == "C_Initialize" || function == "C_GetFunctionList";
  const std::optional<CK_RV> forced = token.beginCall(function, arguments);
  const CK_RV value = forced                         ? *forced
                      : isFirst || token.initialized ? work(token, given)
                                                     : CKR_CRYPTOKI_NOT_INITIALIZED;
  token.record(function + arguments + " -> " + hexNumber(value) + given);
  return value;
}

/// A call on a session, which must exist; `work` gets it too.
template <typename Work>
CK_RV onSession(const char* function, CK_SESSION_HANDLE handle, const std::string& arguments,
                Work work) {
  return call(function, fields("session", handle) + arguments, [&](auto& token, auto& given) {
    const auto session = token.sessions.find(handle);
    if (session == token.sessions.end()) return CKR_SESSION_HANDLE_INVALID;
    return work(token, session->second, given);
  });
}

/// The length that the script wants told of an attribute that is read, or else asked about.
std::optional<CK_ULONG> falseLength(const FakeToken& token, CK_OBJECT_HANDLE object,
                                    CK_ATTRIBUTE_TYPE type, bool isRead) {
  for (const TokenScript::Words& words : token.current.after({"lie", "length"})) {
    if (number(words.at(0)) == type && words.at(1) != (isRead ? "asked" : "read") &&
        (words.size() < 5 || number(words[4]) == object)) {
      return number(words.at(2));
    }
  }
  return std::nullopt;
}

/// Gives one attribute as the standard's C_GetAttributeValue does, or as the script's lies want.
CK_RV giveAttribute(const FakeToken& token, CK_OBJECT_HANDLE object, CK_ATTRIBUTE& wanted) {
  const Attributes& attributes = *token.object(object);
  const auto own = attributes.find(wanted.type);
  const bool isRead = wanted.pValue != nullptr;
  const auto lie = falseLength(token, object, wanted.type, isRead);
  const CK_ULONG room = wanted.ulValueLen;
  wanted.ulValueLen = CK_UNAVAILABLE_INFORMATION;
  if (own == attributes.end()) return CKR_ATTRIBUTE_TYPE_INVALID;
  const Bytes& value = own->second;
  if (isRead && !lie && room < value.size()) return CKR_BUFFER_TOO_SMALL;
  if (isRead) {  // Even a lie never writes outside the caller's buffer.
    std::copy_n(value.begin(), std::min<CK_ULONG>(room, value.size()),
                static_cast<unsigned char*>(wanted.pValue));
  }
  wanted.ulValueLen = lie.value_or(value.size());
  return CKR_OK;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

CK_RV C_Initialize(CK_VOID_PTR arguments) {
  FakeToken::instance().readEnvironment();
  const std::string text = fields("arguments", set(arguments != nullptr));
  return call("C_Initialize", text, [](auto& token, auto&) {
    if (token.initialized && token.current.after({"accept"}).empty()) {
      return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    }
    token.initialized = true;
    return CKR_OK;
  });
}

CK_RV C_Finalize(CK_VOID_PTR reserved) {
  const std::string text = fields("reserved", set(reserved != nullptr));
  return call("C_Finalize", text, [](auto& token, auto&) {
    token.initialized = token.loggedIn = false;
    token.sessions.clear();
    return CKR_OK;
  });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  const std::string text =
      fields("tokenPresent", int{tokenPresent}, "list", set(slots != nullptr), "count", *count);
  return call("C_GetSlotList", text, [&](auto& token, auto& given) {
    const std::vector<CK_SLOT_ID> own = token.current.slots();
    const bool tooSmall = slots != nullptr && *count < own.size();
    if (slots != nullptr && !tooSmall) std::copy(own.begin(), own.end(), slots);
    *count = token.countToTell("slots", own.size());
    given = fields("count", *count);
    return tooSmall ? CKR_BUFFER_TOO_SMALL : CKR_OK;
  });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
  const std::string text = fields("slot", slot, "flags", hexNumber(flags), "application",
                                  set(application != nullptr), "notify", set(notify != nullptr));
  return call("C_OpenSession", text, [&](auto& token, auto& given) {
    if ((flags & CKF_SERIAL_SESSION) == 0) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
    const std::vector<CK_SLOT_ID> own = token.current.slots();
    if (std::find(own.begin(), own.end(), slot) == own.end()) return CKR_SLOT_ID_INVALID;
    *session = ++token.lastSession;
    token.sessions[*session] = {};
    given = fields("session", *session);
    return CKR_OK;
  });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return onSession("C_CloseSession", session, "", [&](auto& token, auto&, auto&) {
    token.sessions.erase(session);
    token.loggedIn = token.loggedIn && !token.sessions.empty();
    return CKR_OK;
  });
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  const std::string typed(reinterpret_cast<const char*>(pin), length);
  std::string text = fields("user", user, "pinLength", length);
  if (!FakeToken::instance().current.after({"log"}).empty()) text += fields("pin", typed);
  return onSession("C_Login", session, text, [&](auto& token, auto&, auto&) {
    if (token.loggedIn) return CKR_USER_ALREADY_LOGGED_IN;
    const std::string right = token.current.value({"pin"}, "1234");
    if (right != "*" && typed != right) return CKR_PIN_INCORRECT;
    token.loggedIn = true;
    return CKR_OK;
  });
}

CK_RV C_Logout(CK_SESSION_HANDLE session) {
  return onSession("C_Logout", session, "", [](auto& token, auto&, auto&) {
    return std::exchange(token.loggedIn, false) ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
  });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text;
  Attributes wanted;
  for (const CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    const auto* bytes = static_cast<const unsigned char*>(attribute.pValue);
    text += fields(hexNumber(attribute.type), hex(bytes, attribute.ulValueLen));
    wanted[attribute.type].assign(bytes, bytes + (bytes == nullptr ? 0 : attribute.ulValueLen));
  }
  return onSession("C_FindObjectsInit", session, text, [&](auto& token, auto& state, auto&) {
    if (state.found) return CKR_OPERATION_ACTIVE;
    state.found = token.search(wanted);
    return CKR_OK;
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maximum,
                    CK_ULONG_PTR count) {
  const std::string text = fields("maximum", maximum);
  return onSession("C_FindObjects", session, text, [&](auto& token, auto& state, auto& given) {
    if (!state.found) return CKR_OPERATION_NOT_INITIALIZED;
    const auto last = state.found->begin() +
                      static_cast<std::ptrdiff_t>(std::min<CK_ULONG>(maximum, state.found->size()));
    std::copy(state.found->begin(), last, objects);
    const auto number = static_cast<CK_ULONG>(last - state.found->begin());
    state.found->erase(state.found->begin(), last);
    *count = token.countToTell("found", number);
    given = fields("count", *count);
    for (const CK_OBJECT_HANDLE object : std::span(objects, number)) {
      given += fields("object", object);
    }
    return CKR_OK;
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return onSession("C_FindObjectsFinal", session, "", [](auto&, auto& state, auto&) {
    return std::exchange(state.found, std::nullopt) ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
  });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text = fields("object", object);
  const std::span all(attributes, count);
  for (const CK_ATTRIBUTE& attribute : all) {
    text += fields(hexNumber(attribute.type), buffer(attribute.pValue, attribute.ulValueLen));
  }
  return onSession("C_GetAttributeValue", session, text, [&](auto& token, auto&, auto& given) {
    if (token.object(object) == nullptr) return CKR_OBJECT_HANDLE_INVALID;
    CK_RV result = CKR_OK;
    for (CK_ATTRIBUTE& attribute : all) {
      const CK_RV own = giveAttribute(token, object, attribute);
      if (own != CKR_OK) result = own;
      given += " " + hexNumber(attribute.type) + ":" + std::to_string(attribute.ulValueLen);
    }
    return result;
  });
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
  const CK_MECHANISM_TYPE type = mechanism->mechanism;
  const std::string text =
      fields("mechanism", hexNumber(type), "parameter",
             buffer(mechanism->pParameter, mechanism->ulParameterLen), "key", key);
  return onSession("C_SignInit", session, text, [&](auto& token, auto& state, auto&) {
    if (!token.loggedIn) return CKR_USER_NOT_LOGGED_IN;
    if (type != CKM_RSA_PKCS) return CKR_MECHANISM_INVALID;
    const Attributes* object = token.object(key);
    if (object == nullptr || object->contains(CKA_VALUE)) return CKR_KEY_HANDLE_INVALID;
    state.signing = true;
    return CKR_OK;
  });
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR signatureLength) {
  const CK_ULONG room = *signatureLength;
  const std::string text = fields("data", hex(data, length), "signature", buffer(signature, room));
  return onSession("C_Sign", session, text, [&](auto& token, auto& state, auto& given) {
    if (!state.signing) return CKR_OPERATION_NOT_INITIALIZED;
    const CK_ULONG own = number(token.current.value({"signature"}, "256"));
    *signatureLength = token.countToTell("signature", own);
    given = fields("length", *signatureLength);
    if (signature == nullptr) return CKR_OK;
    if (room < own) return CKR_BUFFER_TOO_SMALL;
    for (CK_ULONG at = 0; at < own; ++at) {
      signature[at] = static_cast<CK_BYTE>(at ^ (length == 0 ? 0U : data[at % length]));
    }
    state.signing = false;
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
  FakeToken::instance().readEnvironment();
  *list = &functions;
  return call("C_GetFunctionList", "", [](auto&, auto&) { return CKR_OK; });
}

}  // extern "C"
#pragma GCC visibility pop
