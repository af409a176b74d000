// What of the service a conversation with the host cannot reach, or not under every sanitizer.
#include <nss.h>
#include <pk11pub.h>
#include <sys/resource.h>

#include "tests/signing/Service.h"

namespace {

using Util = DigitalSignatureUtil;
using Names = std::vector<std::string>;

/// An empty registry, and no token, before every test.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() {
    setenv("SIGNING_HOST_PKCS11_MODULE", "/nonexistent", 1);
    gPines.clear();
  }
};

std::string list(Util& service) { return service.ListCertificates(""); }
std::string retrieve(Util& service) { return service.GetCertificateBase64("Aas="); }
std::string sign(Util& service) { return service.SignPkcs1Base64("Aas=", "AA=="); }

TEST_F(ServiceTest, ACodeSetWithTheAuthorisationStopsTheListingAlone) {
  struct Doubtful : Service {
    using Service::Service;
    bool IsAuthorized() override { return (lastError = 7) != 0; }
  } doubtful("", "", "");
  EXPECT_EQ(list(doubtful), "");
  EXPECT_EQ(doubtful.error(), "7 0 ");
  EXPECT_EQ(retrieve(doubtful), "");
  EXPECT_EQ(doubtful.error(), "12 5 C_Initialize failed");
}

TEST_F(ServiceTest, OnlyAPinThatMayBeRightGoesToTheToken) {
  const std::tuple<std::string, bool, std::string> kCases[]{
      {"", true, "11 0 No se ha definido el pin para Certificado ZORAL"},
      {"12", true, "5 0 Pin invalido para Certificado ZORAL"},
      {"12", false, "12 5 C_Login"}};
  for (const auto& [pin, flagged, error] : kCases) {
    Service service("", "", "");
    PinInfoStruct& record = gPines[kModule];
    record.pin = pin;
    record.invalid = flagged;
    record.retries = 7;
    EXPECT_FALSE(service.Login(1));
    EXPECT_EQ(service.error(), error);
    EXPECT_EQ(record.invalid, flagged);
    EXPECT_EQ(record.retries, error[0] == '5' ? 8 : 7);
  }
}

TEST_F(ServiceTest, ThePinRegistryAnswersInKeyOrderAndQuestionsFillNothing) {
  EXPECT_FALSE(Util::MissingPin() || Util::InvalidPin());
  EXPECT_EQ(Util::InvalidPinRetries(kModule), 0);
  EXPECT_TRUE(gPines.empty());
  for (const char* module : {"b", "A", "a", "B"}) Util::SetPin(module, "");
  Util::SetPin("a", "1234");
  EXPECT_FALSE(InvalidPin());
  gPines["b"].invalid = gPines["a"].invalid = true;  // "b" is missing and invalid at once
  Util::SetPin("a", "1234");  // the same again: the token would only refuse it again
  EXPECT_TRUE(Util::MissingPin() && Util::InvalidPin());
  EXPECT_EQ(Util::InvalidPines(), (Names{"a", "b"}));
  EXPECT_EQ(Util::MissingPines(), (Names{"A", "B", "b"}));
  Util::SetPin("a", std::string("1234\0", 5));  // another PIN: they are no C strings
  EXPECT_EQ(Util::InvalidPines(), (Names{"b"}));
  Service("", "", "").ClearPin();
  EXPECT_TRUE(gPines.empty());
}

// Within the record; what a longer one leaves on the heap is looked for in the running host.
TEST_F(ServiceTest, AReplacedOrDestroyedPinLeavesNoTrace) {
  alignas(PinInfoStruct) unsigned char storage[sizeof(PinInfoStruct)] = {};
  const std::string_view bytes(reinterpret_cast<const char*>(storage), sizeof storage);
  auto* record = new (storage) PinInfoStruct();
  record->pin = "87654321";
  *record = PinInfoStruct();
  EXPECT_EQ(bytes.find("7654321"), std::string_view::npos);
  record->pin = "87654321";
  record->~PinInfoStruct();
  EXPECT_EQ(bytes.find("7654321"), std::string_view::npos);
}

TEST_F(ServiceTest, NssIsStoppedOnlyByTheServiceThatStartedIt) {
  auto service = std::make_unique<Service>("", "", "");
  EXPECT_TRUE(Service("", "", "").IsInitialized());
  EXPECT_EQ(service->error(), "0 0 ");
  EXPECT_FALSE(service->NeedConfigDir());
  PK11SlotInfo* const slot = PK11_GetInternalKeySlot();
  EXPECT_TRUE(PK11_IsReadOnly(slot));  // there is no database of keys
  PK11_FreeSlot(slot);
  service.reset();
  EXPECT_FALSE(NSS_IsInitialized());
}

TEST(DistinguishedName, SplitsAtEveryEqualsSignAndComma) {
  const std::pair<const char*, Util::NameValueMap> kCases[]{
      {"CN=Root CA, O=Example, C=CR", {{"c", "cr"}, {"cn", "root ca"}, {"o", "example"}}},
      {"", {{"", ""}}},
      {"No  Name", {{"", "no name"}}},
      {"CN=Root,", {{"cn", ""}}},
      {",CN=a,b", {{"", ""}, {"cn", "b"}}},
      {"CN=a=b", {{"a", "b"}}},
      {R"(CN="a\,b")", {{"cn", R"(b")"}}},
      {"S=San Jose", {{"st", "san jose"}}},
      {"OID.2.5.4.5=1", {{"serialnumber", "1"}}},
      {"Identificador de  objeto (2 5 4 5)=1", {{"serialnumber", "1"}}},
      {"N\xFAmero de serie=1", {{"serialnumber", "1"}}},
      {"N\xC3\xBAmero de serie=1", {{"n\xC3\xBAmero de serie", "1"}}}};  // UTF-8 is not an alias
  for (const auto& [text, expected] : kCases) EXPECT_EQ(Util::GetNameValueMap(text), expected);
  Service service("", "", "");
  const std::vector<Util::NameValueMap> expected{{{"a", "1"}}, {{"b", "2"}}};
  EXPECT_EQ(service.GetCADistinguishedNames("a=1|  |b=2|"), expected);
  EXPECT_EQ(service.GetCADistinguishedNames("   "), std::vector<Util::NameValueMap>());
}

TEST(DistinguishedName, MatchesWhenTheAttributesAreTheSameAndPrintsInKeyOrder) {
  const auto name = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123");
  const auto same = Util::GetNameValueMap("oid.2.5.4.5=123, cn=root   ca");
  const auto more = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=123,OU=y");
  const auto other = Util::GetNameValueMap("CN=Root CA,SERIALNUMBER=124");
  EXPECT_TRUE(Util::AreMatch(name, same));
  EXPECT_FALSE(Util::AreMatch(name, more) || Util::AreMatch(more, name));
  EXPECT_TRUE(Util::HasDistinguishedName({more, same}, name));
  EXPECT_FALSE(Util::HasDistinguishedName({more, other}, name));
  testing::internal::CaptureStdout();
  Util::PrintDistinguishedName(more);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "cn=root ca,ou=y,serialnumber=123,\n");
}

/// Without a free descriptor NSS cannot load its own module.
void runWithoutNss() {
  const rlimit none{3, 3};
  setrlimit(RLIMIT_NOFILE, &none);
  Service service("", "", "");
  EXPECT_FALSE(service.IsInitialized());
  EXPECT_TRUE(service.LastError() == 1 && !service.IsAuthorized());
  EXPECT_TRUE(service.NeedConfigDir());
  EXPECT_EQ(service.error().substr(0, 8), "1 -5977 ");
  EXPECT_NE(service.LastErrorMessage(), "");
  for (const auto operation : {list, retrieve, sign}) {
    service.lastError = 0;
    EXPECT_EQ(operation(service), "");
    EXPECT_EQ(service.LastError(), 1);
  }
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ServiceDeathTest, WithoutNssNothingIsDone) {
  if (SANITIZED != 0) GTEST_SKIP() << "the sanitizers need descriptors of their own";
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // in a process that never ran NSS
  EXPECT_EXIT(runWithoutNss(), testing::ExitedWithCode(0), "");
}

}  // namespace
