#pragma once

#include <gtest/gtest.h>

#include <string>

#include "signing/DigitalSignatureUtilPkcs11.h"

inline constexpr char kModule[] = "Certificado ZORAL";

/// The service with the members that tests look at.
class Service : public DigitalSignatureUtilPkcs11 {
 public:
  Service(const std::string& domainsSignature, const std::string& list, const std::string& page)
      : DigitalSignatureUtilPkcs11("not used", domainsSignature, list, page) {}

  using DigitalSignatureUtil::domainList;
  using DigitalSignatureUtil::lastError;
  using DigitalSignatureUtilPkcs11::Login;

  /// "code low-level message"
  std::string error() const {
    return std::to_string(LastError()) + " " + std::to_string(LastLowLevelError()) + " " +
           LastErrorMessage();
  }
};
