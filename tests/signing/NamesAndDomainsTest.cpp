// Pure text rules of the service: domain lists, host names, distinguished names. Page addresses as
// an attacker writes them are in DomainAttackTest.cpp.
#include "tests/signing/ServiceFixture.h"

namespace {

using Util = DigitalSignatureUtil;
using Map = Util::NameValueMap;
using Texts = std::vector<std::string>;

TEST(Domains, TrimKeepsEverythingButSpacesAndCapitals) {
  const std::pair<const char*, const char*> kCases[]{
      {"   ", ""}, {"  A  b ", "a b"}, {" \tX ", "\tx"}, {"\xC3\x89\xDA Z", "\xC3\x89\xDA z"}};
  for (const auto& [text, expected] : kCases) EXPECT_EQ(Util::trim(text), expected) << text;
}

TEST(Domains, AHostNameIsNotCutInItsFirstPosition) {
  const std::pair<const char*, const char*> kCases[]{
      {"abc://shop.example.test/x?y=1", "shop.example.test"},
      {":8080", ":8080"},
      {"/a/b", "/a"},
      {"??", "?"},
      {"://", ""}};
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(Util::extractDomainName(text), expected) << text;
  }
}

TEST(Domains, EveryEntryButTheLastIsNormalised) {
  const std::pair<const char*, Texts> kCases[]{
      {"|", {}},
      {"a||B| |", {"a", "b"}},
      {" Example.Test |Other.Test ", {"example.test", "Other.Test "}},
      {"a|  ", {"a", "  "}}};
  for (const auto& [text, expected] : kCases) {
    Service service(" Sig ", text, " ABC://Shop.Example.Test:8443/a?b ");
    EXPECT_EQ(service.domainList, expected) << text;
    EXPECT_EQ(service.domains, text);
    EXPECT_EQ(service.signature, " Sig ");
    EXPECT_EQ(service.currentDomain, "shop.example.test");
    EXPECT_EQ(errorOf(service), "0 0 ");
    service.LoadDomains("x");
    EXPECT_EQ(service.domainList, Texts{"x"});
  }
}

TEST(DistinguishedName, SplitsAtEveryEqualsSignAndComma) {
  const std::pair<const char*, Map> kCases[]{
      {"CN=Root CA, O=Example, C=CR", {{"c", "cr"}, {"cn", "root ca"}, {"o", "example"}}},
      {"", {{"", ""}}},
      {"No  Name", {{"", "no name"}}},
      {"CN=Root,", {{"cn", ""}}},
      {"CN=a,b", {{"cn", "b"}}},
      {"CN=a=b", {{"a", "b"}}},
      {R"(CN="a\,b")", {{"cn", R"(b")"}}},
      {"S=San Jose", {{"st", "san jose"}}},
      {"OID.2.5.4.5=1", {{"serialnumber", "1"}}},
      {"Identificador de  objeto (2 5 4 5)=1", {{"serialnumber", "1"}}},
      {"N\xFAmero de serie=1", {{"serialnumber", "1"}}},
      {"N\xC3\xBAmero de serie=1", {{"n\xC3\xBAmero de serie", "1"}}}};  // UTF-8 is not an alias
  for (const auto& [text, expected] : kCases) EXPECT_EQ(Util::GetNameValueMap(text), expected);
  Service service("", "", "");
  const std::vector<Map> expected{{{"a", "1"}}, {{"b", "2"}}};
  EXPECT_EQ(service.GetCADistinguishedNames("a=1|  |b=2|"), expected);
  EXPECT_EQ(service.GetCADistinguishedNames("   "), std::vector<Map>());
}

TEST(DistinguishedName, MatchesWhenTheAttributesAreTheSame) {
  const Map name = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123");
  const Map same = Util::GetNameValueMap("oid.2.5.4.5=123, cn=root   ca");
  const Map more = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123,OU=y");
  const Map other = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=124");
  EXPECT_TRUE(Util::AreMatch(name, same));
  EXPECT_FALSE(Util::AreMatch(name, more) || Util::AreMatch(more, name));
  EXPECT_TRUE(Util::HasDistinguishedName({more, same}, name));
  EXPECT_FALSE(Util::HasDistinguishedName({more, other}, name));
}

TEST(DistinguishedName, PrintsInKeyOrder) {
  testing::internal::CaptureStdout();
  Util::PrintDistinguishedName({{"o", "x"}, {"cn", "y"}});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "cn=y,o=x,\n");
}

}  // namespace
