#pragma once

#include <pkcs11.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "signing/DigitalSignatureUtil.h"
#include "signing/TokenScopes.h"

struct SECKEYPublicKeyStr;

/// The signing service on a PKCS#11 token. It calls the standard `C_*` functions by name; the
/// program decides which library they belong to.
///
/// No token session outlives an operation: each runs `C_Initialize` to `C_Finalize` itself on the
/// first slot that holds a token. NSS is started by the first object that finds it not running, and
/// shut down by that object. One thread only. The members' sources are named where they are not
/// DigitalSignatureUtilPkcs11.cpp.
class DigitalSignatureUtilPkcs11 : public DigitalSignatureUtil {
 public:
  /// The first text is not used; the others are those of `DigitalSignatureUtil`. When NSS cannot be
  /// started, `IsInitialized` is false and the error state tells why.
  DigitalSignatureUtilPkcs11(std::string unused, std::string domainsSignature,
                             std::string signedDomains, std::string pageAddress);
  DigitalSignatureUtilPkcs11(const DigitalSignatureUtilPkcs11&) = delete;
  DigitalSignatureUtilPkcs11& operator=(const DigitalSignatureUtilPkcs11&) = delete;
  DigitalSignatureUtilPkcs11(DigitalSignatureUtilPkcs11&&) = delete;
  DigitalSignatureUtilPkcs11& operator=(DigitalSignatureUtilPkcs11&&) = delete;

  std::string ListCertificates(std::string caSubjectNames) override;  // CertificateListing.cpp
  bool IsInitialized() override { return initialized; }
  std::vector<NameValueMap> GetCADistinguishedNames(std::string names) override;
  std::string GetCertificateBase64(std::string certId) override;  // CertificateRetrieval.cpp
  std::string SignPkcs1Base64(std::string certId, std::string digest) override;  // Pkcs1Signing.cpp
  bool IsAuthorized() override;  // PageAuthorization.cpp
  bool NeedConfigDir() override;
  void ClearPin() override;
  ~DigitalSignatureUtilPkcs11() override;

 protected:
  using Bytes = std::vector<CK_BYTE>;

  /// What `getSlot` and `startSession` return on failure.
  static constexpr CK_ULONG kNone = ~CK_ULONG{0};
  /// Longest attribute that is read, in bytes. A token that reports more (or "unavailable", which
  /// is all ones) has not reported a length.
  static constexpr CK_ULONG kMaximumAttributeLength = CK_ULONG{1} << 20U;
  /// Most slots that are taken from a token library.
  static constexpr CK_ULONG kMaximumSlots = 4096;

  // The steps that every operation on the token repeats: TokenSession.cpp.

  /// Clears the error code, then asks in this order: service started, page authorised, every PIN
  /// known and none refused. False, with the error state set, when the token must not be touched.
  bool mayUseToken();
  /// `C_Initialize`, slot, session. What was opened before a failure stays in `connection`.
  bool connect(TokenConnection& connection);
  /// A new session on the connection's slot in place of the one that is open, if one is.
  bool openSession(TokenConnection& connection);
  /// The first slot that holds a token, or `kNone`.
  CK_SLOT_ID getSlot();
  /// A new read-only session, or `kNone`.
  CK_SESSION_HANDLE startSession(CK_SLOT_ID slot);
  /// Logs the user in with the registry's PIN and writes a refusal back to the registry.
  /// `CKU_CONTEXT_SPECIFIC` is for the operation that the session has begun.
  bool Login(CK_SESSION_HANDLE session, CK_USER_TYPE user = CKU_USER);
  /// Handle of the next object of the running find; nothing at its end and on failure.
  std::optional<CK_OBJECT_HANDLE> findObject(CK_SESSION_HANDLE session, const char* what);
  /// The attributes' values, read in two calls (lengths, then values); empty on failure.
  std::vector<Bytes> readAttributes(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                    std::span<const CK_ATTRIBUTE_TYPE> types);

  /// A certificate object as it was read: both are empty where that failed.
  struct CertificateObject {
    Bytes id;
    Bytes der;
  };
  /// Shows every X.509 certificate object of the token, in its order: CertificateListing.cpp.
  void visitCertificates(CK_SESSION_HANDLE session,
                         const std::function<void(CertificateObject&)>& visit);

  /// The first entry of the domain list that covers the page's host name, or null:
  /// PageAuthorization.cpp.
  [[nodiscard]] const std::string* coveringEntry() const;

  // Where a failure becomes error state.

  /// True for `CKR_OK`, the return value of a PKCS#11 call; any other is recorded by `fail`.
  bool checkReturnValue(CK_RV rv, const char* what);
  /// Records a failure: its error code, the PKCS#11 return value that a token gave or that says
  /// what is wrong with its answer, and `what`, the step's label, as the message.
  void fail(CK_RV rv, const char* what);
  /// Records the current NSPR error. The error code is set only when there is none yet, from the
  /// state of the PIN registry.
  void SetErrorInfo();

 private:
  void setError(std::int32_t code, std::string message);

  // PageAuthorization.cpp
  bool verifyDomains(SECKEYPublicKeyStr& key);
  void setDomainsSignatureError(const char* fallbackMessage);

  // CertificateListing.cpp, CertificateRetrieval.cpp
  std::string listSigningCertificates(CK_SESSION_HANDLE session);
  std::string readCertificate(CK_SESSION_HANDLE session, std::span<CK_BYTE> id);

  // Pkcs1Signing.cpp
  /// With `ownLogin`, the key gets a login of its own for the signature
  /// (`CKA_ALWAYS_AUTHENTICATE`). A key that refuses, and tells that it wants it the other way,
  /// turns `ownLogin` round.
  std::string logInAndSign(CK_SESSION_HANDLE session, const std::string& certId,
                           const std::string& digest, bool& ownLogin);
  std::string signDigest(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                         std::span<const CK_BYTE> digest, bool& ownLogin);

  bool authorized = false;
  /// The verdict in `authorized` is final for this object.
  bool authorizationChecked = false;
  bool initialized = false;
  /// This object started NSS and shuts it down.
  bool nssStartedHere = false;
  /// Key of the token's PIN in the registry; also the end of the PIN messages.
  std::string pinModuleName;
};
