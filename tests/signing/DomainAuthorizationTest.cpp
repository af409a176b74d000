#include <gtest/gtest.h>
#include <nss.h>

#include "signing/Base64.h"
#include "signing/DomainsKey.h"
#include "tests/signing/ServiceFixture.h"

namespace {

using test_support::signSha1;

class DomainAuthorization : public ServiceTest {};

struct PageCase {
  const char* domains;
  const char* page;
  bool authorized;
};

class DomainMatch : public ServiceTest, public testing::WithParamInterface<PageCase> {};

TEST_P(DomainMatch, FollowsTheSuffixRule) {
  const auto& [domains, page, authorized] = GetParam();
  Service service(signSha1(DOMAINS_PRIVATE_KEY, domains), domains, page);
  EXPECT_EQ(service.IsAuthorized(), authorized);
  EXPECT_EQ(errorOf(service), authorized ? "0 0 " : "9 0 ");
  EXPECT_FALSE(service.InvalidDomainsSignature());
  // The verdict stays; a refused page is not told why again.
  gPines[kModule].invalid = true;
  EXPECT_EQ(service.IsAuthorized(), authorized);
  EXPECT_EQ(errorOf(service), "0 0 ");
}

INSTANTIATE_TEST_SUITE_P(
    Pages, DomainMatch,
    testing::Values(PageCase{"example.test|Other.Test", "abc://other.test/x", false},
                    PageCase{"example.test|Other.Test", "abc://shop.example.test:443/", true},
                    PageCase{"example.test|other.test ", "abc://other.test/", false},
                    PageCase{" Example.test |x.test", "example.test", true},
                    PageCase{"x.test|example.test", "ABC://SHOP.EXAMPLE.TEST", true},
                    PageCase{"example.test", "badexample.test", true},
                    PageCase{".example.test", "badexample.test", false},
                    PageCase{"example.test", "example.test.evil.test", false},
                    PageCase{"a.test", "a.test.a.test", false},
                    PageCase{"a.test|test.a.test", "a.test.a.test", true},
                    PageCase{"", "example.test", false}));

TEST_F(DomainAuthorization, TheReceivedBytesAreWhatIsSigned) {
  Service service(signSha1(DOMAINS_PRIVATE_KEY, "a.test"), "a.test ", "a.test");
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_EQ(service.LastError(), 10);
}

TEST_F(DomainAuthorization, AWrongSignatureIsExplainedOnceAndStaysFinal) {
  const std::string good = signSha1(DOMAINS_PRIVATE_KEY, "a.test");
  const std::pair<std::string, const char*> kCases[]{
      {signSha1(DOMAINS_PRIVATE_KEY, "b.test"), "VFY_VerifyData failed"},
      {good.substr(0, good.size() - 4), "VFY_VerifyData failed"},
      {"AAAA", "VFY_VerifyData failed"},
      {"", "NSSBase64_DecodeBuffer failed"},
      {"!", "NSSBase64_DecodeBuffer failed"}};
  for (const auto& [signature, message] : kCases) {
    Service service(signature, "a.test", "a.test");
    EXPECT_FALSE(service.IsAuthorized());
    EXPECT_EQ(service.LastError(), 10);
    EXPECT_NE(service.LastLowLevelError(), 0);
    EXPECT_EQ(service.LastErrorMessage(), message);
    EXPECT_TRUE(service.InvalidDomainsSignature());
    gPines[kModule].pin = "";  // a PIN problem later on changes nothing
    EXPECT_EQ(service.ListCertificates(""), "");
    EXPECT_EQ(service.LastError(), 0);
    EXPECT_EQ(service.LastErrorMessage(), message);
    EXPECT_TRUE(service.InvalidDomainsSignature());
    gPines.clear();
  }
  EXPECT_EQ(calls(), "");
}

TEST_F(DomainAuthorization, AWrongSignatureIsAttributedToThePinsFirst) {
  Service service("AAAA", "a.test", "a.test");
  gPines["a"].invalid = true;  // invalid and, without a PIN, missing: missing wins here
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_EQ(service.LastError(), 11);
  gPines["a"].pin = "1";
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_EQ(service.LastError(), 5);
  EXPECT_EQ(service.LastErrorMessage(), "");
  EXPECT_FALSE(service.InvalidDomainsSignature());
  gPines["a"].invalid = false;
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_EQ(service.LastError(), 10);
  EXPECT_TRUE(service.InvalidDomainsSignature());
}

TEST_F(DomainAuthorization, AnUndecodableSignatureIsNotAttributedToThePins) {
  Service service("!", "a.test", "a.test");
  gPines["a"];
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_EQ(service.LastError(), 10);
}

TEST_F(DomainAuthorization, NssIsStoppedOnlyByTheServiceThatStartedIt) {
  auto service = authorizedService();
  EXPECT_TRUE(service->IsAuthorized());
  EXPECT_TRUE(Service("", "", "").IsInitialized());
  EXPECT_FALSE(service->NeedConfigDir());
  service.reset();
  EXPECT_FALSE(NSS_IsInitialized());
  ASSERT_EQ(NSS_NoDB_Init(nullptr), SECSuccess);
  service = authorizedService();
  EXPECT_TRUE(service->IsAuthorized());
  EXPECT_EQ(NSS_Shutdown(), SECSuccess);
  EXPECT_TRUE(service->NeedConfigDir());
  EXPECT_TRUE(service->IsAuthorized());  // the verdict needs no NSS
}

TEST(DomainsKey, DecodesOnlyAnRsaPublicKeyAndDoesNotPointIntoTheInput) {
  const ItemHandle der = decodeBase64(DigitalSignatureUtil::GetQuorinPublicKey());
  ASSERT_TRUE(der);
  ASSERT_EQ(der->len, 140U);
  const PublicKeyHandle key = miSECKEY_DecodeDERPublicKey(*der);
  ASSERT_TRUE(key);
  for (unsigned int length = 0; length < der->len; ++length) {
    const SECItem cut{siBuffer, der->data, length};
    EXPECT_FALSE(miSECKEY_DecodeDERPublicKey(cut)) << length;
  }
  PORT_Memset(der->data, 0, der->len);
  EXPECT_EQ(key->u.rsa.modulus.len, 128U);  // the leading zero byte is gone
  EXPECT_NE(key->u.rsa.modulus.data[0], 0);
  const SECItem& exponent = key->u.rsa.publicExponent;
  EXPECT_EQ(test_support::hex({reinterpret_cast<char*>(exponent.data), exponent.len}), "010001");
}

}  // namespace
