// The C_* functions of the fake token: arguments into the log, the script's will, then a real
// module's behaviour.
#include <algorithm>
#include <sstream>

#include "tests/fake_token/FakeToken.h"

namespace {

std::string hex(const unsigned char* bytes, CK_ULONG length) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (CK_ULONG at = 0; bytes != nullptr && at < length; ++at) {
    text += kDigits[bytes[at] >> 4U];
    text += kDigits[bytes[at] & 0xFU];
  }
  return text;
}

std::string hexNumber(CK_ULONG value) {
  std::ostringstream text;
  text << "0x" << std::hex << value;
  return text.str();
}

std::string buffer(const void* pointer, CK_ULONG length) {
  return (pointer == nullptr ? "null:" : "buffer:") + std::to_string(length);
}

std::string field(const char* name, const std::string& value) {
  return std::string(" ") + name + "=" + value;
}

std::string field(const char* name, CK_ULONG value) { return field(name, std::to_string(value)); }

std::string nullField(const char* name, bool isNull) {
  return field(name, isNull ? "null" : "set");
}

/// One call: `work` gets the token and the text to which it adds what it gave back.
template <typename Work>
CK_RV call(const char* function, const std::string& arguments, Work work) {
  FakeToken& token = FakeToken::instance();
  std::string results;
  const std::optional<CK_RV> forced = token.beginCall(function, arguments);
  const CK_RV value = forced ? *forced : work(token, results);
  token.record(function + arguments + " -> " + hexNumber(value) + results);
  return value;
}

/// A call on a session, which must exist.
template <typename Work>
CK_RV callOnSession(const char* function, CK_SESSION_HANDLE handle, const std::string& arguments,
                    Work work) {
  return call(function, field("session", handle) + arguments,
              [&](FakeToken& token, std::string& results) -> CK_RV {
                if (!token.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
                FakeToken::Session* session = token.session(handle);
                if (session == nullptr) return CKR_SESSION_HANDLE_INVALID;
                return work(token, *session, results);
              });
}

/// Gives one attribute as the standard's C_GetAttributeValue does, or as the script's lies want.
CK_RV giveAttribute(const FakeToken& token, CK_OBJECT_HANDLE object, CK_ATTRIBUTE& wanted) {
  const Attributes& attributes = *token.object(object);
  const auto own = attributes.find(wanted.type);
  const bool isRead = wanted.pValue != nullptr;
  const auto& lies = token.current.lengthLies;
  const auto lie = std::find_if(lies.begin(), lies.end(), [&](const LengthLie& candidate) {
    return candidate.type == wanted.type && (isRead ? candidate.whenRead : candidate.whenAsked) &&
           (candidate.object == 0 || candidate.object == object);
  });
  if (own == attributes.end() && lie == lies.end()) {
    wanted.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CKR_ATTRIBUTE_TYPE_INVALID;
  }
  const Bytes value = own == attributes.end() ? Bytes() : own->second;
  if (isRead) {
    if (lie == lies.end() && wanted.ulValueLen < value.size()) {
      wanted.ulValueLen = CK_UNAVAILABLE_INFORMATION;
      return CKR_BUFFER_TOO_SMALL;
    }
    // Even a lie never writes outside the caller's buffer.
    std::copy_n(value.begin(), std::min<CK_ULONG>(wanted.ulValueLen, value.size()),
                static_cast<unsigned char*>(wanted.pValue));
  }
  wanted.ulValueLen = lie == lies.end() ? value.size() : lie->length;
  return CKR_OK;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

CK_RV C_Initialize(CK_VOID_PTR arguments) {
  FakeToken::instance().readEnvironment();
  return call("C_Initialize", nullField("arguments", arguments == nullptr),
              [](FakeToken& token, std::string&) -> CK_RV {
                if (token.initialized && !token.current.acceptSecondInitialize) {
                  return CKR_CRYPTOKI_ALREADY_INITIALIZED;
                }
                token.initialized = true;
                return CKR_OK;
              });
}

CK_RV C_Finalize(CK_VOID_PTR reserved) {
  return call("C_Finalize", nullField("reserved", reserved == nullptr),
              [](FakeToken& token, std::string&) -> CK_RV {
                if (!token.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
                token.initialized = token.loggedIn = false;
                token.sessions.clear();
                return CKR_OK;
              });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  return call("C_GetSlotList",
              field("tokenPresent", tokenPresent) + nullField("list", slots == nullptr) +
                  field("count", *count),
              [&](FakeToken& token, std::string& results) -> CK_RV {
                if (!token.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
                const std::vector<CK_SLOT_ID>& own = token.current.slots;
                CK_RV value = CKR_OK;
                if (slots != nullptr && *count < own.size()) {
                  value = CKR_BUFFER_TOO_SMALL;
                } else if (slots != nullptr) {
                  std::copy(own.begin(), own.end(), slots);
                }
                *count = token.countToTell("C_GetSlotList", own.size());
                results = field("count", *count);
                return value;
              });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE_PTR session) {
  return call("C_OpenSession",
              field("slot", slot) + field("flags", hexNumber(flags)) +
                  nullField("application", application == nullptr) +
                  nullField("notify", notify == nullptr),
              [&](FakeToken& token, std::string& results) -> CK_RV {
                if (!token.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
                if ((flags & CKF_SERIAL_SESSION) == 0) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
                const std::vector<CK_SLOT_ID>& own = token.current.slots;
                if (std::find(own.begin(), own.end(), slot) == own.end()) {
                  return CKR_SLOT_ID_INVALID;
                }
                *session = ++token.lastSession;
                token.sessions[*session] = {};
                results = field("session", *session);
                return CKR_OK;
              });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return callOnSession("C_CloseSession", session, "",
                       [&](FakeToken& token, FakeToken::Session&, std::string&) -> CK_RV {
                         token.sessions.erase(session);
                         if (token.sessions.empty()) token.loggedIn = false;
                         return CKR_OK;
                       });
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  const std::string text(reinterpret_cast<const char*>(pin), length);
  const bool showPin = FakeToken::instance().current.logPin;
  return callOnSession(
      "C_Login", session,
      field("user", user) + field("pinLength", length) + (showPin ? field("pin", text) : ""),
      [&](FakeToken& token, FakeToken::Session&, std::string&) -> CK_RV {
        if (token.loggedIn) return CKR_USER_ALREADY_LOGGED_IN;
        if (token.current.pin != "*" && text != token.current.pin) return CKR_PIN_INCORRECT;
        token.loggedIn = true;
        return CKR_OK;
      });
}

CK_RV C_Logout(CK_SESSION_HANDLE session) {
  return callOnSession("C_Logout", session, "",
                       [](FakeToken& token, FakeToken::Session&, std::string&) -> CK_RV {
                         if (!token.loggedIn) return CKR_USER_NOT_LOGGED_IN;
                         token.loggedIn = false;
                         return CKR_OK;
                       });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text;
  Attributes wanted;
  for (CK_ULONG at = 0; at < count; ++at) {
    const CK_ATTRIBUTE& attribute = attributes[at];
    const auto* value = static_cast<const unsigned char*>(attribute.pValue);
    text += field(hexNumber(attribute.type).c_str(), hex(value, attribute.ulValueLen));
    wanted[attribute.type] =
        value == nullptr ? Bytes() : Bytes(value, value + attribute.ulValueLen);
  }
  return callOnSession("C_FindObjectsInit", session, text,
                       [&](FakeToken& token, FakeToken::Session& state, std::string&) -> CK_RV {
                         if (state.found) return CKR_OPERATION_ACTIVE;
                         state.found = token.search(wanted);
                         state.given = 0;
                         return CKR_OK;
                       });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG maximum,
                    CK_ULONG_PTR count) {
  return callOnSession(
      "C_FindObjects", session, field("maximum", maximum),
      [&](FakeToken& token, FakeToken::Session& state, std::string& results) -> CK_RV {
        if (!state.found) return CKR_OPERATION_NOT_INITIALIZED;
        std::string handles;
        CK_ULONG given = 0;
        for (; given < maximum && !state.found->empty(); ++given, ++state.given) {
          const CK_OBJECT_HANDLE object = state.found->front();
          state.found->erase(state.found->begin());
          if (token.current.searchLie && state.given + 1 < *token.current.searchLie) {
            state.found->push_back(object);
          }
          objects[given] = object;
          handles += field("object", object);
        }
        *count = token.countToTell("C_FindObjects", given);
        results = field("count", *count) + handles;
        return CKR_OK;
      });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return callOnSession("C_FindObjectsFinal", session, "",
                       [](FakeToken&, FakeToken::Session& state, std::string&) -> CK_RV {
                         if (!state.found) return CKR_OPERATION_NOT_INITIALIZED;
                         state.found.reset();
                         return CKR_OK;
                       });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  std::string text = field("object", object);
  for (CK_ULONG at = 0; at < count; ++at) {
    text += field(hexNumber(attributes[at].type).c_str(),
                  buffer(attributes[at].pValue, attributes[at].ulValueLen));
  }
  return callOnSession("C_GetAttributeValue", session, text,
                       [&](FakeToken& token, FakeToken::Session&, std::string& results) -> CK_RV {
                         if (token.object(object) == nullptr) return CKR_OBJECT_HANDLE_INVALID;
                         CK_RV value = CKR_OK;
                         for (CK_ULONG at = 0; at < count; ++at) {
                           const CK_RV own = giveAttribute(token, object, attributes[at]);
                           if (own != CKR_OK) value = own;
                           results.append(" ").append(hexNumber(attributes[at].type));
                           results.append(":").append(std::to_string(attributes[at].ulValueLen));
                         }
                         return value;
                       });
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
  return callOnSession(
      "C_SignInit", session,
      field("mechanism", hexNumber(mechanism->mechanism)) +
          field("parameter", buffer(mechanism->pParameter, mechanism->ulParameterLen)) +
          field("key", key),
      [&](FakeToken& token, FakeToken::Session& state, std::string&) -> CK_RV {
        if (!token.loggedIn) return CKR_USER_NOT_LOGGED_IN;
        if (mechanism->mechanism != CKM_RSA_PKCS) return CKR_MECHANISM_INVALID;
        const Attributes* object = token.object(key);
        if (object == nullptr || object->contains(CKA_VALUE)) return CKR_KEY_HANDLE_INVALID;
        state.signingKey = key;
        return CKR_OK;
      });
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
             CK_ULONG_PTR signatureLength) {
  return callOnSession(
      "C_Sign", session,
      field("data", hex(data, length)) + field("signature", buffer(signature, *signatureLength)),
      [&](FakeToken& token, FakeToken::Session& state, std::string& results) -> CK_RV {
        if (!state.signingKey) return CKR_OPERATION_NOT_INITIALIZED;
        const Bytes made = token.signature(*state.signingKey, Bytes(data, data + length));
        if (made.empty()) return CKR_FUNCTION_FAILED;
        const CK_ULONG room = *signatureLength;
        *signatureLength = token.countToTell("C_Sign", made.size());
        results = field("length", *signatureLength);
        if (signature == nullptr) return CKR_OK;
        if (room < made.size()) return CKR_BUFFER_TOO_SMALL;
        std::copy(made.begin(), made.end(), signature);
        state.signingKey.reset();
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
  return call("C_GetFunctionList", "", [&](FakeToken&, std::string&) -> CK_RV {
    *list = &functions;
    return CKR_OK;
  });
}

}  // extern "C"
#pragma GCC visibility pop
