// The whole road on a SoftHSM token, with signatures checked by OpenSSL.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;
using test_support::base64;

constexpr char kDomains[] = "demo.example.test|Example.Test";
constexpr char kPage[] = "https://demo.example.test/page";

class SoftTokenTest : public testing::Test {
 protected:
  json ask(const std::string& request) { return json::parse(host.ask(request)); }
  void initialize(const char* page = kPage, const char* domains = kDomains) {
    EXPECT_EQ(ask(initializeRequest(page, domains, kDomains))["error"], false);
  }
  json sign(const std::string& digest, const std::string& certId = "\x01") {
    return ask(json{{"command", 5}, {"certId", base64(certId)}, {"digest", base64(digest)}}.dump());
  }

  /// OpenSSL's verdict on a PKCS#1 v1.5 signature by the signing certificate's key.
  static bool verifies(const std::string& hash, const std::string& digest,
                       const std::string& signature) {
    const TemporaryFolder folder;
    folder.write("digest", digest);
    folder.write("base64", signature + "\n");
    const std::string command =
        "cd " + folder.file(".") + " && openssl base64 -d -in base64 -out signature && " +
        "openssl pkeyutl -verify -certin -inkey " +
        softToken()["certificates"]["signing"]["certificate"].get<std::string>() +
        " -in digest -sigfile signature -pkeyopt digest:" + hash + " >verdict";
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a fixed command, one thread
    return std::system(command.c_str()) == 0;
  }

  HostProcess host{{}, softTokenEnvironment()};
};

TEST_F(SoftTokenTest, ListsTheOneCertificateThatCanSignNowAndFetchesIt) {
  initialize();
  const std::string listing = ask(kListRequest)["certificates"];
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
  EXPECT_TRUE(bytes.ends_with("|AQ==")) << bytes;

  std::ifstream file(softToken()["certificates"]["signing"]["der"], std::ios::binary);
  const std::string der(std::istreambuf_iterator<char>(file), {});
  EXPECT_EQ(ask(R"({"command":4,"certId":"AQ=="})")["certificate"], nssBase64(der));
  EXPECT_EQ(ask(R"({"command":4,"certId":"dw=="})")["certificate"], "");
}

TEST_F(SoftTokenTest, SignsAfterMissingWrongAndCorrectedPin) {
  initialize();
  const std::string digest(32, 'Z');
  EXPECT_EQ(sign(digest)["lastError"], 11);
  host.ask(setPinRequest("000000"));
  for (int refused = 0; refused < 2; ++refused) {  // The second time without asking the token.
    const json answer = sign(digest);
    EXPECT_EQ(answer["lastError"], 5);
    EXPECT_EQ(answer["invalidPin"], true);
    EXPECT_EQ(answer["pinRetryCount"], 1);
  }
  EXPECT_EQ(ask(kListRequest)["lastError"], 5);  // Not even what needs no PIN.
  for (const char byte : softToken()["pin"].get<std::string>()) {
    EXPECT_EQ(ask(pinCharRequest({byte}))["lastError"], 5);
  }
  // A PIN outlives the service: after another Initialize it is still known.
  for (int services = 0; services < 2; ++services) {
    for (const auto& [hash, length] : {std::pair("sha256", 32), {"sha1", 20}, {"md5", 16}}) {
      const std::string bytes(static_cast<std::size_t>(length), static_cast<char>('a' + services));
      const json answer = sign(bytes);
      EXPECT_EQ(answer["error"], false) << answer;
      EXPECT_TRUE(verifies(hash, bytes, answer["pkcs1"])) << hash;
    }
    initialize();
  }
  EXPECT_EQ(sign(std::string(48, 'a'))["lastError"], 3);
  const json unknown = sign(digest, "\x99");
  EXPECT_EQ(unknown["pkcs1"], "");
}

TEST_F(SoftTokenTest, RefusesPagesThatTheListDoesNotCover) {
  const auto list = [&](const char* page, const char* domains) {
    initialize(page, domains);
    return ask(kListRequest)["lastError"];
  };
  EXPECT_EQ(list(kPage, kDomains), 0);
  for (const auto& [page, domains, error] :
       {std::tuple("https://other.example.test", kDomains, 9), {kPage, "demo.example.test", 10}}) {
    EXPECT_EQ(list(page, domains), error);
    // Intended: a refusal is told once; then it is silent.
    const json again = ask(kListRequest);
    EXPECT_EQ(again["lastError"], 0);
    EXPECT_EQ(again["certificates"], "");
  }
}

}  // namespace
