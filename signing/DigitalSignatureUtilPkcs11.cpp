#include "signing/DigitalSignatureUtilPkcs11.h"

#include <nss.h>
#include <pk11pub.h>
#include <prerror.h>
#include <prinit.h>

#include <utility>

#include "signing/ServiceError.h"

DigitalSignatureUtilPkcs11::DigitalSignatureUtilPkcs11(
    std::string /*unused*/,  // NOLINT(performance-unnecessary-value-param): the interface's type
    std::string domainsSignature, std::string signedDomains, std::string pageAddress)
    : DigitalSignatureUtil(std::move(domainsSignature), std::move(signedDomains),
                           std::move(pageAddress)),
      pinModuleName("Certificado ZORAL") {
  PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0);
  if (NSS_IsInitialized() != PR_FALSE) {
    initialized = true;
    return;
  }
  // Without certificate or module database: certificates come only from the token.
  if (NSS_Initialize("", "", "", "", NSS_INIT_READONLY | NSS_INIT_NOCERTDB | NSS_INIT_NOMODDB) ==
      SECSuccess) {
    initialized = true;
    nssStartedHere = true;
    return;
  }
  SetErrorInfo();
  lastError = service_error::kNotInitialized;
}

DigitalSignatureUtilPkcs11::~DigitalSignatureUtilPkcs11() {
  PK11_LogoutAll();
  if (nssStartedHere) {
    NSS_Shutdown();
  }
}

std::vector<DigitalSignatureUtil::NameValueMap> DigitalSignatureUtilPkcs11::GetCADistinguishedNames(
    std::string names) {
  return GetNameValueMaps(names);
}

bool DigitalSignatureUtilPkcs11::NeedConfigDir() { return NSS_IsInitialized() == PR_FALSE; }

void DigitalSignatureUtilPkcs11::ClearPin() {
  PK11_LogoutAll();
  gPines.clear();
}

void DigitalSignatureUtilPkcs11::setError(std::int32_t code, std::string message) {
  lastError = code;
  errorMessage = std::move(message);
}

bool DigitalSignatureUtilPkcs11::checkReturnValue(CK_RV rv, const char* what) {
  if (rv == CKR_OK) {
    return true;
  }
  fail(rv, what);
  return false;
}

void DigitalSignatureUtilPkcs11::fail(CK_RV rv, const char* what) {
  // CKR_PIN_EXPIRED is left out on purpose: the PIN was right, typing it again does not help.
  const bool pinRefused = rv == CKR_PIN_INCORRECT || rv == CKR_PIN_INVALID ||
                          rv == CKR_PIN_LEN_RANGE || rv == CKR_PIN_LOCKED;
  lastLowLevelError = static_cast<std::int64_t>(rv);
  setError(pinRefused ? service_error::kInvalidPin : service_error::kTokenFailure, what);
}

void DigitalSignatureUtilPkcs11::SetErrorInfo() {
  if (lastError == service_error::kNone) {
    if (::InvalidPin()) {
      lastError = service_error::kInvalidPin;
    } else if (::MissingPin()) {
      lastError = service_error::kMissingPin;
    }
  }
  // Whatever error is current, on purpose: where no call of NSPR or NSS failed it is a stale one.
  lastLowLevelError = PR_GetError();
  errorMessage.assign(static_cast<std::size_t>(PR_GetErrorTextLength()), '\0');
  PR_GetErrorText(errorMessage.data());  // its terminator is the string's own
}
