#include <secder.h>
#include <secdig.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>

#include "signing/Base64.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/ServiceError.h"

namespace {

/// Bytes of the buffer that receives a signature; enough for RSA keys up to 16384 bits.
constexpr CK_ULONG kSignatureBufferSize = 2048;

constexpr unsigned int kMd5Length = 16;
constexpr unsigned int kSha1Length = 20;
constexpr unsigned int kSha256Length = 32;

// DigestInfo of PKCS#1 (RFC 8017, appendix A.2.4) in the template language of `DER_Encode`; NSS's
// headers have it only for its newer encoder.
DERTemplate kAlgorithmIdentifierTemplate[] = {
    {DER_SEQUENCE, {}, nullptr, sizeof(SECAlgorithmID)},
    {DER_OBJECT_ID, offsetof(SECAlgorithmID, algorithm), nullptr, {}},
    {DER_OPTIONAL | DER_ANY, offsetof(SECAlgorithmID, parameters), nullptr, {}},
    {},
};
DERTemplate SGNDigestInfoTemplate[] = {
    {DER_SEQUENCE, {}, nullptr, sizeof(SGNDigestInfo)},
    {DER_INLINE, offsetof(SGNDigestInfo, digestAlgorithm), kAlgorithmIdentifierTemplate, {}},
    {DER_OCTET_STRING, offsetof(SGNDigestInfo, digest), nullptr, {}},
    {},
};

bool isDigestLength(unsigned int length) {
  return length == kMd5Length || length == kSha1Length || length == kSha256Length;
}

SECOidTag hashOfLength(std::size_t length) {
  if (length < kSha1Length) {
    return SEC_OID_MD5;
  }
  return length == kSha1Length ? SEC_OID_SHA1 : SEC_OID_SHA256;
}

/// The certIds of keys that have asked for a login for each signature. Like the PINs, they outlive
/// the service objects.
std::set<std::string>& keysWithOwnLogin() {
  static std::set<std::string> certIds;
  return certIds;
}

bool wantsOwnLogin(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
  CK_BBOOL value = CK_FALSE;
  CK_ATTRIBUTE attribute{CKA_ALWAYS_AUTHENTICATE, &value, sizeof value};
  return C_GetAttributeValue(session, key, &attribute, 1) == CKR_OK && value != CK_FALSE;
}

}  // namespace

std::string DigitalSignatureUtilPkcs11::SignPkcs1Base64(std::string certId, std::string digest) {
  if (!mayUseToken()) {
    return {};
  }
  TokenConnection connection;
  if (!connect(connection)) {
    return {};
  }
  const std::string earlierMessage = errorMessage;
  const std::int64_t earlierLowLevelError = lastLowLevelError;
  const bool remembered = keysWithOwnLogin().contains(certId);
  bool ownLogin = remembered;
  std::string result = logInAndSign(connection.session, certId, digest, ownLogin);
  if (ownLogin == remembered) {
    return result;
  }
  if (ownLogin) {
    keysWithOwnLogin().insert(certId);
  } else {
    keysWithOwnLogin().erase(certId);  // another card's key under the same id
  }
  // The refusal only told the way: it is no failure yet.
  lastError = service_error::kNone;
  lastLowLevelError = earlierLowLevelError;
  errorMessage = earlierMessage;
  // In the session of the refused operation, some tokens refuse the login as well.
  return openSession(connection) ? logInAndSign(connection.session, certId, digest, ownLogin)
                                 : std::string();
}

std::string DigitalSignatureUtilPkcs11::logInAndSign(CK_SESSION_HANDLE session,
                                                     const std::string& certId,
                                                     const std::string& digest, bool& ownLogin) {
  if (!Login(session)) {
    return {};
  }
  const LoginScope loggedIn(session);
  // Digest and certId are judged only after the login, on purpose: bad input costs a PIN use.
  const ItemHandle digestBytes = decodeBase64(digest);
  if (!digestBytes || !isDigestLength(digestBytes->len)) {
    lastError = service_error::kUndecodableInput;
    SetErrorInfo();
    return {};
  }
  const ItemHandle id = decodeBase64(certId);
  if (!id) {
    lastError = service_error::kUndecodableInput;
    SetErrorInfo();
    return {};
  }
  CK_OBJECT_CLASS objectClass = CKO_PRIVATE_KEY;
  std::array<CK_ATTRIBUTE, 2> search{{
      {CKA_CLASS, &objectClass, sizeof objectClass},
      {CKA_ID, id->data, id->len},
  }};
  if (!checkReturnValue(C_FindObjectsInit(session, search.data(), search.size()),
                        "Find objects init")) {
    return {};
  }
  FindScope find(session);
  const auto key = findObject(session, "Find first object");
  find.end();  // a token refuses to sign while a find runs
  if (!key) {
    return {};
  }
  return signDigest(session, *key, {digestBytes->data, digestBytes->len}, ownLogin);
}

std::string DigitalSignatureUtilPkcs11::signDigest(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                                                   std::span<const CK_BYTE> digest,
                                                   bool& ownLogin) {
  const ArenaHandle arena(PORT_NewArena(kArenaChunkSize));
  const DigestInfoHandle digestInfo(SGN_CreateDigestInfo(hashOfLength(digest.size()), digest.data(),
                                                         static_cast<unsigned int>(digest.size())));
  if (!arena || !digestInfo) {
    lastError = service_error::kTokenFailure;
    SetErrorInfo();
    return {};
  }
  SECItem data{};
  // Not tested: on failure the token is asked to sign nothing.
  static_cast<void>(DER_Encode(arena.get(), &data, SGNDigestInfoTemplate, digestInfo.get()));

  Bytes buffer(kSignatureBufferSize);
  CK_ULONG length = kSignatureBufferSize;
  CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
  if (!checkReturnValue(C_SignInit(session, &mechanism, key), "sign init new")) {
    return {};
  }
  if (ownLogin && !Login(session, CKU_CONTEXT_SPECIFIC)) {
    ownLogin = lastLowLevelError != CKR_OPERATION_NOT_INITIALIZED;
    return {};
  }
  if (!checkReturnValue(C_Sign(session, data.data, data.len, buffer.data(), &length),
                        "sign final")) {
    ownLogin =
        ownLogin || (lastLowLevelError == CKR_USER_NOT_LOGGED_IN && wantsOwnLogin(session, key));
    return {};
  }
  if (length > buffer.size()) {
    fail(CKR_BUFFER_TOO_SMALL, "sign final");
    return {};
  }
  return length != 0 ? encodeBase64({buffer.data(), length}) : std::string();
}
