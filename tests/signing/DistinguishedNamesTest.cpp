#include "tests/signing/Service.h"

namespace {

using Util = DigitalSignatureUtil;
using Map = Util::NameValueMap;

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

TEST(DistinguishedName, MatchesWhenTheAttributesAreTheSameAndPrintsInKeyOrder) {
  const Map name = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123");
  const Map same = Util::GetNameValueMap("oid.2.5.4.5=123, cn=root   ca");
  const Map more = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123,OU=y");
  const Map other = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=124");
  EXPECT_TRUE(Util::AreMatch(name, same));
  EXPECT_FALSE(Util::AreMatch(name, more) || Util::AreMatch(more, name));
  EXPECT_TRUE(Util::HasDistinguishedName({more, same}, name));
  EXPECT_FALSE(Util::HasDistinguishedName({more, other}, name));
  testing::internal::CaptureStdout();
  Util::PrintDistinguishedName(more);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "cn=root ca,ou=y,serialnumber=123,\n");
}

}  // namespace
