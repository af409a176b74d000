// Which pages a domain list lets use the token: hostile addresses and lists, each with the verdict
// that the rules give, lists that nobody signed, and the key that verifies them. Where a verdict is
// a risk, docs/security.md says what the operator and the extension do about it.
#include <nss.h>
#include <prerror.h>

#include <tuple>

#include "signing/Base64.h"
#include "signing/DomainListKey.h"
#include "tests/signing/Service.h"
#include "tests/support/TestCertificate.h"

namespace {

using namespace std::string_literals;

struct Case {
  const char* why;
  std::string domains;
  std::string page;
  bool authorized;
};

// The host name ends at the first ":", "/" or "?"; a list's last entry is taken as it stands.
const Case kCases[] = {
    {"a password cuts the name off at its colon", "a.test", "https://a.test:x@evil.test/", true},
    {"only the first occurrence of an entry counts", "a.test", "https://a.test@a.test/", false},
    {"a port is cut off", "a", "https://a:8443/", true},
    {"a colon in first position stays", "a.test", ":a.test:1", true},
    {"an IPv6 host is cut at its first colon", "[::1]", "https://[::1]/", false},
    {"no dot boundary: a longer name passes", "a.test", "https://evila.test/", true},
    {"an entry with a leading dot demands the boundary", ".a.test", "https://evila.test/", false},
    {"a trailing dot is part of the name", "a.test", "https://a.test./", false},
    {"an address in capitals is lowered", "a.test", "HTTPS://A.TEST/", true},
    {"a capital in an entry is lowered", "A.Test|", "https://a.test/", true},
    {"but not in the last entry", "A.Test", "https://a.test/", false},
    {"beyond A to Z nothing is lowered", "\u00e9.test", "https://\u00c9.test/", false},
    {"spaces around an address are dropped", "a.test", "  https://a.test  ", true},
    {"a line feed is not", "a.test", "https://a.test\n/", false},
    {"a tab is not, but a run of spaces is one", "\ta b|", "https://x.\ta   b/", true},
    {"spaces around an entry are dropped", " a.test |b.test", "https://a.test/", true},
    {"but not around the last one", "b.test| a.test", "https://a.test/", false},
    {"a zero byte is a byte like any other", "a.test", "https://a.test\0.evil.test/"s, false},
    {"no scheme", "a.test", "a.test/x", true},
    {"one slash", "a.test", "https:/a.test", false},
    {"the first scheme end counts", "a.test", "https://evil.test/?x=https://a.test/", false},
    {"a fragment is not cut off", "a.test", "https://evil.test#a.test", true},
    {"a backslash does not separate", "a.test", "https://evil.test\\a.test", true},
    {"a query does separate", "a.test", "https://evil.test?a.test", false},
    {"an empty list covers nothing", "", "https://a.test/", false},
    {"nor does an empty entry", "|| |b.test|", "", false},
    {"no wildcards", "*.a.test|*", "https://b.a.test/", false},
    {"a later entry may match all the same", "t|test", "https://a.test/", true},
};

TEST(DomainAttack, EveryAddressGetsTheVerdictOfTheRules) {
  ASSERT_EQ(NSS_NoDB_Init(nullptr), SECSuccess);  // once, not for each service
  for (const Case& test : kCases) {
    SCOPED_TRACE(std::string(test.why) + ": " + test.domains + " for " + test.page);
    Service service(test_support::signDomains(test.domains), test.domains, test.page);
    service.LoadDomains(test.domains);  // replaces the entries that the service began with
    EXPECT_LT(service.domainList.size(), 3U);
    for (const char* refusal : {"9 0 ", "0 0 "}) {  // the verdict is not explained again
      EXPECT_EQ(service.IsAuthorized(), test.authorized);
      EXPECT_EQ(service.error(), test.authorized ? "0 0 " : refusal);
      gPines[kModule].invalid = true;  // and is final
    }
    EXPECT_FALSE(service.InvalidDomainsSignature());
    gPines.clear();
  }
  // NSS refuses to shut down while an object of its is still held: nothing was left over.
  EXPECT_EQ(NSS_Shutdown(), SECSuccess);
}

// Nothing but the operator's own signature over the very bytes opens the list.
TEST(DomainAuthorization, NoOtherListIsBelievedAndTheVerdictIsExplainedOnce) {
  const std::string domains = "a.test|b.test";
  const std::string good = test_support::signDomains(domains);
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
    EXPECT_EQ(service.error(), error);
    gPines[kModule].pin = "";  // a PIN problem later on changes nothing
    EXPECT_EQ(service.GetCertificateBase64("Aas="), "");
    EXPECT_EQ(service.error(), "0" + error.substr(2));
    EXPECT_TRUE(service.InvalidDomainsSignature());
    gPines.clear();
  }
}

TEST(DomainAuthorization, AWrongSignatureIsAttributedToThePinsFirst) {
  Service service("AAAA", "a.test", "a.test");
  Service undecodable("!", "a.test", "a.test");
  gPines["a"].invalid = true;
  PR_SetError(-5, 0);  // NSS says nothing about a text that is no base64: the old error stays
  PR_SetErrorText(5, "hello");
  for (const char* error : {"10 -5 hello", "0 -5 hello"}) {  // final at once, whatever the PINs
    EXPECT_FALSE(undecodable.IsAuthorized());
    EXPECT_EQ(undecodable.error(), error);
  }
  // Without a PIN it is missing, though it is invalid too.
  for (const auto& [code, invalid] : {std::pair(11, true), {11, false}, {5, true}, {10, false}}) {
    gPines["a"].pin = code == 11 ? "" : "1";
    gPines["a"].invalid = invalid;
    EXPECT_FALSE(service.IsAuthorized());
    EXPECT_EQ(service.error(),
              std::to_string(code) + " -8182 " + (code == 10 ? "VFY_VerifyData failed" : ""));
    EXPECT_EQ(service.InvalidDomainsSignature(), code == 10);
  }
}

TEST(DomainListKey, DecodesOnlyAnRsaPublicKeyAndDoesNotPointIntoTheInput) {
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
  EXPECT_EQ(exponent.type, siUnsignedInteger);
  EXPECT_EQ(test_support::hex({reinterpret_cast<char*>(exponent.data), exponent.len}), "010001");
}

}  // namespace
