#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "signing/DigitalSignatureUtilPkcs11.h"
#include "tests/fake_token/FakeToken.h"
#include "tests/support/TestCertificate.h"

inline constexpr char kModule[] = "Certificado ZORAL";

/// The service with the members that tests look at.
class Service : public DigitalSignatureUtilPkcs11 {
 public:
  Service(const std::string& domainsSignature, const std::string& list, const std::string& page)
      : DigitalSignatureUtilPkcs11("not used", domainsSignature, list, page) {}

  using DigitalSignatureUtil::currentDomain;
  using DigitalSignatureUtil::domainList;
  using DigitalSignatureUtil::domains;
  using DigitalSignatureUtil::signature;
  using DigitalSignatureUtilPkcs11::Login;
};

/// The error state in one text, "code low-level message".
inline std::string errorOf(const DigitalSignatureUtil& service) {
  return std::to_string(service.LastError()) + " " + std::to_string(service.LastLowLevelError()) +
         " " + service.LastErrorMessage();
}

/// A token's misbehaviour, and what an operation then does and leaves.
struct Outcome {
  std::string script, calls, error, result{};
};

/// An empty registry and an empty token before every test; the service for an authorised page.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() {
    FakeToken::instance().reset();
    gPines.clear();
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
      text += text.empty() ? "" : " ";
      text += function.substr(2);
    }
    return text;
  }

  /// Runs the operation on a token with these objects once for each misbehaviour.
  template <typename Cases, typename Operation>
  static void expectOutcomes(const std::string& objects, const Cases& cases, Operation operation) {
    for (const Outcome& each : cases) {
      SCOPED_TRACE(each.script);
      FakeToken::instance().reset();
      FakeToken::instance().script(objects + each.script);
      const auto service = authorizedService();
      EXPECT_EQ(operation(*service), each.result);
      EXPECT_EQ(calls(), each.calls);
      EXPECT_EQ(errorOf(*service), each.error);
    }
  }

  static std::string log() {
    std::string text;
    for (const std::string& line : FakeToken::instance().log()) {
      text += line + "\n";
    }
    return text;
  }
};
