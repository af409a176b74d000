#include <cryptohi.h>

#include <algorithm>
#include <string_view>

#include "signing/Base64.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/DomainListKey.h"
#include "signing/ServiceError.h"

bool DigitalSignatureUtilPkcs11::IsAuthorized() {
  lastError = service_error::kNone;
  if (!IsInitialized()) {
    lastError = service_error::kNotInitialized;
    return false;
  }
  if (authorizationChecked) {
    return authorized;  // a refused page gets no second explanation
  }
  authorized = false;
  const ItemHandle keyBytes = decodeBase64(GetQuorinPublicKey());
  if (!keyBytes) {
    lastError = service_error::kUndecodableInput;
    SetErrorInfo();
    return false;
  }
  const PublicKeyHandle key = miSECKEY_DecodeDERPublicKey(*keyBytes);
  if (!key) {
    lastError = service_error::kUndecodableKey;
    SetErrorInfo();
    return false;
  }
  key->keyType = rsaKey;
  authorizationChecked = true;
  if (verifyDomains(*key)) {
    authorized = coveringEntry() != nullptr;
    if (!authorized) {
      lastError = service_error::kDomainNotAuthorized;
    }
  }
  return authorized;
}

bool DigitalSignatureUtilPkcs11::verifyDomains(SECKEYPublicKey& key) {
  const ItemHandle decodedSignature = decodeBase64(signature);
  if (!decodedSignature) {
    setDomainsSignatureError("NSSBase64_DecodeBuffer failed");
    return false;
  }
  // The bytes as received, not the normalised list; NSS counts them in 32 bits.
  const auto* const message = reinterpret_cast<const unsigned char*>(domains.data());
  if (VFY_VerifyData(message, static_cast<int>(domains.size()), &key, decodedSignature.get(),
                     SEC_OID_PKCS1_SHA1_WITH_RSA_ENCRYPTION, this) == SECSuccess) {
    return true;
  }
  // A PIN problem is reported first, on purpose; the verdict is then open and the check runs again.
  if (::MissingPin() || ::InvalidPin()) {
    lastError = ::MissingPin() ? service_error::kMissingPin : service_error::kInvalidPin;
    authorizationChecked = false;
    SetErrorInfo();
    return false;
  }
  setDomainsSignatureError("VFY_VerifyData failed");
  return false;
}

void DigitalSignatureUtilPkcs11::setDomainsSignatureError(const char* fallbackMessage) {
  invalidDomainsSignature = true;
  lastError = service_error::kInvalidDomainsSignature;
  SetErrorInfo();
  if (errorMessage.empty()) {
    errorMessage = fallbackMessage;
  }
}

const std::string* DigitalSignatureUtilPkcs11::coveringEntry() const {
  const auto covering =
      std::find_if(domainList.begin(), domainList.end(), [this](const std::string& entry) {
        // A plain suffix test on the first occurrence, on purpose: there is no dot boundary, and an
        // entry that also occurs earlier in the host name does not match.
        const std::size_t first = currentDomain.find(entry);
        return first != std::string::npos && first + entry.size() == currentDomain.size();
      });
  return covering != domainList.end() ? &*covering : nullptr;
}
