// The whole road on a SoftHSM token, with signatures checked by OpenSSL.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;
using test_support::base64;
using test_support::signDigest;

constexpr char kDomains[] = "demo.example.test|Example.Test";
constexpr char kPage[] = "https://demo.example.test/page";

class SoftTokenTest : public testing::Test {
 protected:
  json ask(const std::string& request) { return json::parse(host.ask(request)); }
  void initialize() {
    EXPECT_EQ(ask(initializeRequest(kPage, kDomains, kDomains))["error"], false);
  }
  json sign(const std::string& digest, const std::string& certId = "\x01") {
    return ask(json{{"command", 5}, {"certId", base64(certId)}, {"digest", base64(digest)}}.dump());
  }

  // A token made by demo/make-token.
  HostProcess host{{}, {"sh", "-c", "set -a; . '" SOFT_TOKEN_FOLDER "/token.env'; exec \"$0\""}};
};

TEST_F(SoftTokenTest, ListsTheOneCertificateThatCanSignNowAndFetchesIt) {
  initialize();
  const std::string listing = ask(kListRequest)["certificates"];
  // NSS writes the names as UTF-8 bytes; each byte travels as an escape of its own.
  const std::string name =
      "CN=Mar\u00C3\u00ADa N\u00C3\u00BA\u00C3\u00B1ez Sol\u00C3\u00ADs (FIRMA)";
  EXPECT_NE(listing.find(name), std::string::npos) << listing;
  EXPECT_NE(listing.find("O=Rep\u00C3\u00BAblica Imaginaria"), std::string::npos) << listing;
  EXPECT_EQ(std::count(listing.begin(), listing.end(), '|'), 2) << listing;
  EXPECT_TRUE(listing.ends_with("|AQ==")) << listing;

  std::ifstream file(SOFT_TOKEN_FOLDER "/signing.der");
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
  for (const char* digit : {"1", "2", "3", "4", "5", "6"}) {
    EXPECT_EQ(ask(pinCharRequest(digit))["lastError"], 5);
  }
  // A PIN outlives the service: after another Initialize it is still known.
  for (int services = 0; services < 2; ++services) {
    for (const auto& [hash, length] : {std::pair("sha256", 32), {"sha1", 20}, {"md5", 16}}) {
      const std::string bytes(static_cast<std::size_t>(length), static_cast<char>('a' + services));
      const json answer = sign(bytes);
      EXPECT_EQ(answer["error"], false) << answer;
      EXPECT_EQ(answer["pkcs1"],
                nssBase64(signDigest(SOFT_TOKEN_FOLDER "/signing-key.pem", hash, bytes)));
    }
    initialize();
  }
  EXPECT_EQ(sign(std::string(48, 'a'))["lastError"], 3);
  EXPECT_EQ(sign(digest, "\x99")["pkcs1"], "");
}

}  // namespace
