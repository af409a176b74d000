// The steps that operations on the token share: library, slot, session, login, search and read.
#include <algorithm>

#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/ServiceError.h"

bool DigitalSignatureUtilPkcs11::mayUseToken() {
  lastError = service_error::kNone;
  if (!IsInitialized()) {
    lastError = service_error::kNotInitialized;
    return false;
  }
  if (!IsAuthorized()) {
    return false;
  }
  if (::InvalidPin() || ::MissingPin()) {
    SetErrorInfo();
    return false;
  }
  return true;
}

bool DigitalSignatureUtilPkcs11::connect(TokenConnection& connection) {
  if (!checkReturnValue(C_Initialize(nullptr), "C_Initialize failed")) {
    return false;
  }
  connection.library.emplace(nullptr);
  connection.slot = getSlot();
  return connection.slot != kNone && openSession(connection);
}

bool DigitalSignatureUtilPkcs11::openSession(TokenConnection& connection) {
  connection.sessionScope.reset();
  connection.session = startSession(connection.slot);
  if (connection.session == kNone) {
    return false;
  }
  connection.sessionScope.emplace(connection.session);
  return true;
}

CK_SLOT_ID DigitalSignatureUtilPkcs11::getSlot() {
  constexpr const char* kLabel = "get slot list";
  // Plain ASCII on purpose: no accents.
  constexpr const char* kNoToken = "No se encontro ningun slot";
  CK_ULONG count = 10;
  if (!checkReturnValue(C_GetSlotList(CK_TRUE, nullptr, &count), kLabel)) {
    return kNone;
  }
  if (count == 0) {
    setError(service_error::kTokenFailure, kNoToken);
    return kNone;
  }
  if (count > kMaximumSlots) {
    fail(CKR_HOST_MEMORY, kLabel);
    return kNone;
  }
  std::vector<CK_SLOT_ID> slots(count);
  if (!checkReturnValue(C_GetSlotList(CK_TRUE, slots.data(), &count), kLabel)) {
    return kNone;
  }
  if (count == 0) {
    setError(service_error::kTokenFailure, kNoToken);
    return kNone;
  }
  // The list has at least one entry, whatever count the token reports now.
  return slots.front();
}

CK_SESSION_HANDLE DigitalSignatureUtilPkcs11::startSession(CK_SLOT_ID slot) {
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  const CK_RV rv = C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
  return checkReturnValue(rv, "open session") ? session : kNone;
}

bool DigitalSignatureUtilPkcs11::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user) {
  PinInfoStruct record = gPines[pinModuleName];  // an unknown module gets an empty record
  if (record.pin.empty()) {
    // Both PIN messages are plain ASCII on purpose: no accents.
    setError(service_error::kMissingPin, "No se ha definido el pin para " + pinModuleName);
    return false;
  }
  if (!record.invalid) {
    auto* const pin = reinterpret_cast<CK_UTF8CHAR_PTR>(record.pin.data());
    if (checkReturnValue(C_Login(session, user, pin, record.pin.size()), "C_Login")) {
      return true;
    }
    if (lastError != service_error::kInvalidPin) {
      return false;
    }
  }
  // Refused now, or known to be wrong: then the token is not asked, each try would cost the card.
  record.invalid = true;
  ++record.retries;
  gPines[pinModuleName] = record;
  setError(service_error::kInvalidPin, "Pin invalido para " + pinModuleName);
  return false;
}

std::optional<CK_OBJECT_HANDLE> DigitalSignatureUtilPkcs11::findObject(CK_SESSION_HANDLE session,
                                                                       const char* what) {
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  CK_ULONG count{};
  if (!checkReturnValue(C_FindObjects(session, &object, 1, &count), what) || count == 0) {
    return std::nullopt;
  }
  return object;  // only one was asked for: a larger count means one
}

std::vector<DigitalSignatureUtilPkcs11::Bytes> DigitalSignatureUtilPkcs11::readAttributes(
    CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, std::span<const CK_ATTRIBUTE_TYPE> types) {
  constexpr const char* kLabel = "get attribute value";
  std::vector<CK_ATTRIBUTE> attributes(types.size());
  for (std::size_t i = 0; i < types.size(); ++i) {
    attributes[i].type = types[i];
  }
  if (!checkReturnValue(C_GetAttributeValue(session, object, attributes.data(), attributes.size()),
                        kLabel)) {
    return {};
  }
  std::vector<Bytes> values(types.size());
  for (std::size_t i = 0; i < types.size(); ++i) {
    if (attributes[i].ulValueLen > kMaximumAttributeLength) {
      fail(CKR_ATTRIBUTE_VALUE_INVALID, kLabel);
      return {};
    }
    // One byte at least: a null pointer would make the second call a question for the length again.
    values[i].resize(std::max<CK_ULONG>(attributes[i].ulValueLen, 1));
    attributes[i].pValue = values[i].data();
  }
  const std::vector<CK_ATTRIBUTE> asked = attributes;
  if (!checkReturnValue(C_GetAttributeValue(session, object, attributes.data(), attributes.size()),
                        kLabel)) {
    return {};
  }
  for (std::size_t i = 0; i < types.size(); ++i) {
    if (attributes[i].ulValueLen > asked[i].ulValueLen) {
      fail(CKR_BUFFER_TOO_SMALL, kLabel);
      return {};
    }
    values[i].resize(attributes[i].ulValueLen);
  }
  return values;
}
