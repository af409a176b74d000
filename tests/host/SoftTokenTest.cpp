// The whole road on a SoftHSM token, with signatures checked by OpenSSL.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/host/HostProcess.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;

constexpr int kMissingPin = 11;
constexpr int kInvalidPin = 5;

std::string base64(const std::vector<unsigned char>& bytes) {
  return test_support::base64({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

/// NSS's base64 has line breaks, which the host passes on.
std::vector<unsigned char> fromBase64(std::string text) {
  std::erase_if(text, [](char byte) { return byte == '\r' || byte == '\n'; });
  std::vector<unsigned char> bytes(text.size() / 4 * 3 + 1);
  const int length =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<int>(text.size()));
  EXPECT_GE(length, 0) << text;
  const auto padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
  bytes.resize(static_cast<std::size_t>(std::max(length - padding, 0)));
  return bytes;
}

/// OpenSSL's verdict on a PKCS#1 v1.5 signature of `digest` by the key of a DER certificate.
bool verifies(const std::string& certificate, const EVP_MD* hash,
              const std::vector<unsigned char>& digest, const std::string& signature) {
  const std::vector<unsigned char> der = fromBase64(certificate);
  const std::vector<unsigned char> bytes = fromBase64(signature);
  const unsigned char* position = der.data();
  const std::unique_ptr<X509, decltype(&X509_free)> x509(
      d2i_X509(nullptr, &position, static_cast<long>(der.size())), X509_free);
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
      EVP_PKEY_CTX_new(X509_get0_pubkey(x509.get()), nullptr), EVP_PKEY_CTX_free);
  return EVP_PKEY_verify_init(context.get()) == 1 &&
         EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
         EVP_PKEY_CTX_set_signature_md(context.get(), hash) == 1 &&
         EVP_PKEY_verify(context.get(), bytes.data(), bytes.size(), digest.data(), digest.size()) ==
             1;
}

class SoftTokenTest : public testing::Test {
 protected:
  SoftTokenTest() {
    std::ifstream file(SOFT_TOKEN_FOLDER "/token.json");
    token = json::parse(file);
    host = std::make_unique<HostProcess>(
        std::vector<std::string>{},
        HostProcess::Environment{{"SIGNING_HOST_PKCS11_MODULE", token["module"]},
                                 {"SOFTHSM2_CONF", token["softhsm2Conf"]}});
    certId = base64({0x01});
  }

  json ask(const json& request) { return json::parse(host->ask(request.dump())); }

  void initialise() {
    constexpr char kDomains[] = "demo.example.test|example.test";
    const json answer = ask({{"command", 0},
                             {"signature", test_support::signSha1(DOMAINS_PRIVATE_KEY, kDomains)},
                             {"domains", kDomains},
                             {"currentDomain", "https://demo.example.test/page"},
                             {"caSubjectNames", "CN=no such authority"}});
    EXPECT_EQ(answer["error"], false);
  }

  json sign(const std::vector<unsigned char>& digest) {
    return ask({{"command", 5}, {"certId", certId}, {"digest", base64(digest)}});
  }

  json token;
  std::unique_ptr<HostProcess> host;
  std::string certId;
};

TEST_F(SoftTokenTest, ListsTheOneCertificateThatCanSignNowWithItsAccentedNames) {
  initialise();
  const json answer = ask({{"command", 2}});
  EXPECT_EQ(answer["error"], false) << answer;
  const std::string listing = answer["certificates"];
  // NSS writes the names as UTF-8 bytes; each byte travels as an escape of its own.
  std::string bytes;
  for (std::size_t i = 0; i < listing.size(); ++i) {
    const auto lead = static_cast<unsigned char>(listing[i]);
    bytes += lead < 0x80 ? listing[i]
                         : static_cast<char>((lead & 3U) << 6U |
                                             (static_cast<unsigned char>(listing[++i]) & 0x3FU));
  }
  EXPECT_NE(bytes.find("CN=María Núñez Solís (FIRMA)"), std::string::npos) << bytes;
  EXPECT_NE(bytes.find("O=República Imaginaria"), std::string::npos) << bytes;
  EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '|'), 2) << bytes;
  EXPECT_TRUE(bytes.ends_with("|" + certId)) << bytes;
}

TEST_F(SoftTokenTest, FetchesTheCertificateAndNothingForAnUnknownId) {
  initialise();
  std::ifstream file(token["certificates"]["signing"]["der"], std::ios::binary);
  const std::vector<unsigned char> der(std::istreambuf_iterator<char>(file), {});
  EXPECT_EQ(fromBase64(ask({{"command", 4}, {"certId", certId}})["certificate"]), der);

  const json none = ask({{"command", 4}, {"certId", base64({0x77})}});
  EXPECT_EQ(none["certificate"], "");
  EXPECT_EQ(none["lastError"], 0);
}

TEST_F(SoftTokenTest, SignsAfterMissingWrongAndCorrectedPin) {
  initialise();
  const std::vector<unsigned char> digest(32, 0x5A);
  json answer = sign(digest);
  EXPECT_EQ(answer["lastError"], kMissingPin);
  EXPECT_EQ(answer["errorMessage"], "No se ha definido el pin para Certificado ZORAL");
  EXPECT_EQ(answer["pinModuleName"], "Certificado ZORAL");
  EXPECT_EQ(answer["missingPin"], true);
  EXPECT_EQ(answer["pinRetryCount"], 0);
  EXPECT_EQ(answer["pkcs1"], "");

  ask({{"command", 3}, {"pin", "000000"}});
  answer = sign(digest);
  EXPECT_EQ(answer["lastError"], kInvalidPin);
  EXPECT_EQ(answer["lastLowLevelError"], 0xA0);
  EXPECT_EQ(answer["errorMessage"], "Pin invalido para Certificado ZORAL");
  EXPECT_EQ(answer["invalidPin"], true);
  EXPECT_EQ(answer["pinRetryCount"], 1);
  EXPECT_EQ(answer["pinLength"], 0);
  // Refused without asking the token again, and so is what needs no PIN.
  EXPECT_EQ(sign(digest)["pinRetryCount"], 1);
  EXPECT_EQ(ask({{"command", 2}})["lastError"], kInvalidPin);

  for (const char byte : token["pin"].get<std::string>()) {
    // Intended: the error of the last token command is repeated while the PIN is typed.
    EXPECT_EQ(ask({{"command", 6}, {"pinChar", std::string(1, byte)}})["lastError"], kInvalidPin);
  }
  answer = sign(digest);
  EXPECT_EQ(answer["error"], false) << answer;
  EXPECT_EQ(answer["pinModuleName"], "");

  const std::string certificate = ask({{"command", 4}, {"certId", certId}})["certificate"];
  const auto signs = [&](const EVP_MD* hash, std::size_t length, unsigned char fill) {
    const std::vector<unsigned char> bytes(length, fill);
    const json signed_ = sign(bytes);
    return verifies(certificate, hash, bytes, signed_["pkcs1"]);
  };
  EXPECT_TRUE(signs(EVP_sha256(), 32, 0x11));
  EXPECT_TRUE(signs(EVP_sha1(), 20, 0x22));
  EXPECT_TRUE(signs(EVP_md5(), 16, 0x33));

  // A PIN outlives the service: after another Initialize it is still known.
  initialise();
  EXPECT_TRUE(signs(EVP_sha256(), 32, 0x44));
  EXPECT_EQ(sign(std::vector<unsigned char>(48, 1))["lastError"], 3);

  certId = base64({0x99});
  answer = sign(digest);
  EXPECT_EQ(answer["pkcs1"], "");
  EXPECT_EQ(answer["lastError"], 0);
}

// Intended: the refusal leaves the token library initialised, which the next command runs into.
TEST_F(SoftTokenTest, ABadCertIdLeavesTheLibraryInitialised) {
  initialise();
  json answer = ask({{"command", 4}, {"certId", "not base64!"}});
  EXPECT_EQ(answer["lastError"], 12);
  EXPECT_EQ(answer["errorMessage"], "Invalid cert id base64");
  answer = ask({{"command", 2}});
  EXPECT_EQ(answer["errorMessage"], "C_Initialize failed");
  EXPECT_EQ(answer["lastLowLevelError"], 0x191);
}

TEST_F(SoftTokenTest, RefusesPagesThatTheListDoesNotCover) {
  constexpr char kDomains[] = "demo.example.test|Example.Test";
  const std::string signature = test_support::signSha1(DOMAINS_PRIVATE_KEY, kDomains);
  const auto listAs = [&](const char* page, const char* domains) {
    ask({{"command", 0},
         {"signature", signature},
         {"domains", domains},
         {"currentDomain", page},
         {"caSubjectNames", ""}});
    return ask({{"command", 2}});
  };
  EXPECT_EQ(listAs("https://demo.example.test", kDomains)["lastError"], 0);
  EXPECT_EQ(listAs("https://other.example.test", kDomains)["lastError"], 9);
  // Intended: a refusal is told once; then it is silent.
  const auto expectSilentRefusal = [&] {
    const json again = ask({{"command", 2}});
    EXPECT_EQ(again["lastError"], 0);
    EXPECT_EQ(again["certificates"], "");
  };
  expectSilentRefusal();
  EXPECT_EQ(listAs("https://demo.example.test", "demo.example.test")["lastError"], 10);
  expectSilentRefusal();
}

}  // namespace
