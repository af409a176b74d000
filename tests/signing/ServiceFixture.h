#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "signing/Base64.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "tests/fake_token/FakeToken.h"
#include "tests/support/TestCertificate.h"

inline constexpr char kModule[] = "Certificado ZORAL";
inline constexpr char kDigest[] = "AAECAwQFBgcICQoLDA0ODxAREhM=";  // 20 bytes

/// The service with the members that tests look at.
class Service : public DigitalSignatureUtilPkcs11 {
 public:
  Service(const std::string& domainsSignature, const std::string& list, const std::string& page)
      : DigitalSignatureUtilPkcs11("not used", domainsSignature, list, page) {}

  using DigitalSignatureUtil::domainList;
  using DigitalSignatureUtil::lastError;
  using DigitalSignatureUtilPkcs11::Login;
  using DigitalSignatureUtilPkcs11::SetErrorInfo;
};

/// The operations on the object 01ab of a token.
using Operation = std::string (*)(DigitalSignatureUtil&);
inline std::string list(DigitalSignatureUtil& on) { return on.ListCertificates("ignored"); }
inline std::string retrieve(DigitalSignatureUtil& on) { return on.GetCertificateBase64("Aas="); }
inline std::string sign(DigitalSignatureUtil& on) { return on.SignPkcs1Base64("Aas=", kDigest); }
inline constexpr Operation kOperations[]{list, retrieve, sign};

/// The error state in one text, "code low-level message".
inline std::string errorOf(const DigitalSignatureUtil& service) {
  return std::to_string(service.LastError()) + " " + std::to_string(service.LastLowLevelError()) +
         " " + service.LastErrorMessage();
}

inline std::string nssBase64(std::string bytes) {
  return encodeBase64({reinterpret_cast<unsigned char*>(bytes.data()), bytes.size()});
}

/// An empty registry and an empty token before every test.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() {
    script("");
    gPines.clear();
  }

  static void script(const std::string& text) {
    FakeToken::instance().reset();
    FakeToken::instance().script(text);
  }

  /// A page of shop.example.test under a list that the operator signed.
  static std::unique_ptr<Service> authorizedService() {
    constexpr char kDomains[] = "example.test|other.test";
    static const std::string signature = test_support::signSha1(DOMAINS_PRIVATE_KEY, kDomains);
    return std::make_unique<Service>(signature, kDomains, "https://shop.example.test/sign");
  }

  /// The token's calls as one text, without the "C_".
  static std::string calls() {
    std::string text;
    for (const std::string& function : FakeToken::instance().calls()) {
      text += (text.empty() ? "" : " ") + function.substr(2);
    }
    return text;
  }
};
