#include <prerror.h>

#include "signing/DomainListKey.h"
#include "tests/signing/ServiceFixture.h"

namespace {

class DomainAuthorization : public ServiceTest {};

// Nothing but the operator's own signature over the very bytes opens the list.
TEST_F(DomainAuthorization, NoOtherListIsBelievedAndTheVerdictIsExplainedOnce) {
  const std::string domains = "a.test|b.test";
  const std::string good = test_support::signSha1(DOMAINS_PRIVATE_KEY, domains);
  std::string flipped = good;
  flipped[10] = flipped[10] == 'A' ? 'B' : 'A';
  const std::string kWrong = "10 -8182 VFY_VerifyData failed";
  const std::string kUndecodable = "10 0 NSSBase64_DecodeBuffer failed";
  const std::tuple<std::string, std::string, std::string> kAttempts[]{
      {good, "A.test|b.test", kWrong}, {good, "", kWrong},
      {flipped, domains, kWrong},      {good.substr(0, 100), domains, kWrong},
      {"AA==", domains, kWrong},       {good + good, domains, kUndecodable},
      {"!", domains, kUndecodable},    {"", domains, "10 -8187 NSSBase64_DecodeBuffer failed"}};
  for (const auto& [signature, list, error] : kAttempts) {
    SCOPED_TRACE(signature + " for " + list);
    Service service(signature, list, "https://a.test/");
    PR_SetError(0, 0);
    EXPECT_FALSE(service.IsAuthorized());
    EXPECT_EQ(errorOf(service), error);
    gPines[kModule].pin = "";  // a PIN problem later on changes nothing
    EXPECT_EQ(retrieve(service), "");
    EXPECT_EQ(errorOf(service), "0" + error.substr(2));
    EXPECT_TRUE(service.InvalidDomainsSignature());
    gPines.clear();
  }
  EXPECT_EQ(calls(), "");
}

TEST_F(DomainAuthorization, AWrongSignatureIsAttributedToThePinsFirst) {
  gPines["a"].invalid = true;  // invalid and, without a PIN, missing: missing wins here
  Service service("AAAA", "a.test", "a.test");
  Service undecodable("!", "a.test", "a.test");
  for (const int code : {11, 5, 10}) {
    gPines["a"].pin = code == 11 ? "" : "1";
    gPines["a"].invalid = code != 10;
    EXPECT_FALSE(service.IsAuthorized());
    EXPECT_EQ(errorOf(service),
              std::to_string(code) + " -8182 " + (code == 10 ? "VFY_VerifyData failed" : ""));
    EXPECT_EQ(service.InvalidDomainsSignature(), code == 10);
    EXPECT_FALSE(undecodable.IsAuthorized());
    EXPECT_EQ(undecodable.LastError(), code == 11 ? 10 : 0);  // final at once, whatever the PINs
  }
}

TEST(DomainsKey, DecodesOnlyAnRsaPublicKeyAndDoesNotPointIntoTheInput) {
  const ItemHandle der = decodeBase64(DigitalSignatureUtil::GetQuorinPublicKey());
  ASSERT_TRUE(der);
  ASSERT_EQ(der->len, 140U);
  const PublicKeyHandle key = miSECKEY_DecodeDERPublicKey(*der);
  ASSERT_TRUE(key);
  for (unsigned int length = 0; length < der->len; ++length) {
    EXPECT_FALSE(miSECKEY_DecodeDERPublicKey({siBuffer, der->data, length})) << length;
  }
  PORT_Memset(der->data, 0, der->len);
  EXPECT_EQ(key->u.rsa.modulus.len, 128U);  // the leading zero byte is gone
  const SECItem& exponent = key->u.rsa.publicExponent;
  EXPECT_EQ(test_support::hex({reinterpret_cast<char*>(exponent.data), exponent.len}), "010001");
}

}  // namespace
