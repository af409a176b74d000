#include <array>

#include "signing/Base64.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/ServiceError.h"

std::string DigitalSignatureUtilPkcs11::GetCertificateBase64(std::string certId) {
  if (!mayUseToken()) {
    return {};
  }
  TokenConnection connection;
  if (!connect(connection)) {
    return {};
  }
  const ItemHandle id = decodeBase64(certId);
  if (!id) {
    setError(service_error::kTokenFailure, "Invalid cert id base64");
    // On purpose, on this path alone, the session stays open and the library initialised: pages
    // depend on what the next operation then reports.
    connection.sessionScope->leaveOpen();
    connection.library->leaveOpen();
    return {};
  }
  return readCertificate(connection.session, {id->data, id->len});
}

std::string DigitalSignatureUtilPkcs11::readCertificate(CK_SESSION_HANDLE session,
                                                        std::span<CK_BYTE> id) {
  CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  std::array<CK_ATTRIBUTE, 3> search{{
      {CKA_CLASS, &objectClass, sizeof objectClass},
      {CKA_CERTIFICATE_TYPE, &type, sizeof type},
      {CKA_ID, id.data(), id.size()},
  }};
  constexpr std::array<CK_ATTRIBUTE_TYPE, 1> kRead{CKA_VALUE};

  if (!checkReturnValue(C_FindObjectsInit(session, search.data(), search.size()),
                        "Find objects init")) {
    return {};
  }
  const FindScope find(session);
  const auto object = findObject(session, "Find first object");
  if (!object) {
    return {};
  }
  std::vector<Bytes> values = readAttributes(session, *object, kRead);
  if (values.empty() || values[0].empty()) {
    return {};
  }
  return encodeBase64(values[0]);
}
