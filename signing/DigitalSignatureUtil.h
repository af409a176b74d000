#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "signing/PinRegistry.h"

/// The signing service as the host sees it: the page's credentials, the operations on the token and
/// the error state that each operation leaves behind.
///
/// No member throws on bad input. A failed operation returns an empty text or false; the reason is
/// in `LastError` (codes of signing/ServiceError.h), `LastLowLevelError` and `LastErrorMessage`. An
/// operation clears the code at its start; message and low-level code keep their last written
/// value.
class DigitalSignatureUtil {
 public:
  /// Attribute names and values of one distinguished name, all normalised by `trim`.
  using NameValueMap = std::map<std::string, std::string>;

  /// @param domainsSignature base64 of the RSA signature over `signedDomains`
  /// @param signedDomains domain suffixes separated by "|"
  /// @param pageAddress address of the calling page
  ///
  /// Nothing is verified here; `IsAuthorized` does that when it is first called.
  DigitalSignatureUtil(std::string domainsSignature, std::string signedDomains,
                       std::string pageAddress);
  DigitalSignatureUtil(const DigitalSignatureUtil&) = delete;
  DigitalSignatureUtil& operator=(const DigitalSignatureUtil&) = delete;
  DigitalSignatureUtil(DigitalSignatureUtil&&) = delete;
  DigitalSignatureUtil& operator=(DigitalSignatureUtil&&) = delete;

  // The order of the virtual members is part of the interface.

  /// The certificates that can sign now: issuer name, subject name and certId of each, all joined
  /// by "|". The argument (the page's CA names) does not filter.
  virtual std::string ListCertificates(std::string caSubjectNames) = 0;
  /// True when the cryptographic library is usable.
  virtual bool IsInitialized() = 0;
  /// The distinguished names of a "|"-separated list.
  virtual std::vector<NameValueMap> GetCADistinguishedNames(std::string names) = 0;
  /// Base64 DER of the certificate whose certId (base64 `CKA_ID`) is given.
  virtual std::string GetCertificateBase64(std::string certId) = 0;
  /// Base64 PKCS#1 v1.5 signature of a base64 digest (16, 20 or 32 bytes) with the key of `certId`.
  virtual std::string SignPkcs1Base64(std::string certId, std::string digest) = 0;
  /// True when the page's domain is covered by the signed list.
  virtual bool IsAuthorized() = 0;
  /// True when the cryptographic library is not running at this moment.
  virtual bool NeedConfigDir() = 0;
  /// Logs out of the library's tokens and forgets the PINs of all modules.
  virtual void ClearPin() = 0;
  virtual ~DigitalSignatureUtil() = default;

  [[nodiscard]] std::int32_t LastError() const { return lastError; }
  [[nodiscard]] std::int64_t LastLowLevelError() const { return lastLowLevelError; }
  [[nodiscard]] std::string LastErrorMessage() const { return errorMessage; }
  /// True once the domain list's signature was found not to decode or verify; never cleared.
  [[nodiscard]] bool InvalidDomainsSignature() const { return invalidDomainsSignature; }

  // The PIN registry: PinRegistry.h, PinRegistry.cpp.

  /// Stores a module's PIN. A different PIN clears the invalid flag and keeps the retry count; the
  /// same PIN changes nothing.
  static void SetPin(const std::string& moduleName, const std::string& pin);
  static bool MissingPin();
  static bool InvalidPin();
  /// Names of the modules without PIN, in the registry's order.
  static std::vector<std::string> MissingPines();
  /// Names of the modules whose PIN is flagged invalid, in the registry's order.
  static std::vector<std::string> InvalidPines();
  /// Rejected logins of the module; 0 when it has no record.
  static std::int32_t InvalidPinRetries(const std::string& moduleName);

  /// The form in which names and domains are compared. Drops the spaces at both ends, reduces inner
  /// runs to one, and lowers A to Z. Only the space character counts; tabs and line ends stay.
  static std::string trim(std::string_view s);

  // Distinguished names: DistinguishedNames.cpp.

  /// Splits "name=value,name=value" at every "=" and ","; there is no quoting or escaping.
  static NameValueMap GetNameValueMap(std::string_view dn);
  /// One map for each piece of a "|"-separated list that is not blank.
  static std::vector<NameValueMap> GetNameValueMaps(std::string_view text);
  /// True when both hold the same attributes with the same values.
  static bool AreMatch(const NameValueMap& a, const NameValueMap& b);
  static bool HasDistinguishedName(const std::vector<NameValueMap>& list, const NameValueMap& dn);
  /// Diagnostic print to standard output, which in the host carries the messages: nothing on the
  /// way of a request may call it.
  static void PrintDistinguishedName(const NameValueMap& dn);

  // Domains: DomainParsing.cpp, DomainListKey.cpp.

  /// Replaces the list of authorised suffixes by those of a "|"-separated text.
  void LoadDomains(std::string_view text);
  /// The host name of an address: what stands between "://" and the next ":", "/" or "?".
  static std::string extractDomainName(std::string_view address);
  /// Base64 of the DER RSA public key that verifies domain lists; lives as long as the process.
  static const char* GetQuorinPublicKey();

 protected:
  std::string errorMessage;
  std::int32_t lastError = 0;
  /// A `CK_RV` or an NSPR error number, whichever library failed last.
  std::int64_t lastLowLevelError = 0;
  /// Exactly as received.
  std::string signature;
  std::vector<std::string> domainList;
  /// Host name of the page, lower case.
  std::string currentDomain;
  /// Exactly as received: these bytes are what `signature` signs.
  std::string domains;
  bool invalidDomainsSignature = false;
};
