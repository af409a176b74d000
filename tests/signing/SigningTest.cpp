#include <gtest/gtest.h>

#include "signing/Base64.h"
#include "tests/signing/ServiceFixture.h"

namespace {

using test_support::base64;
using test_support::hex;

const std::string kLoggedIn = "Initialize GetSlotList GetSlotList OpenSession Login ";
const std::string kEnd = "Logout CloseSession Finalize";
constexpr char kCertId[] = "Aas=";

class Signing : public ServiceTest {
 protected:
  Signing() { DigitalSignatureUtil::SetPin(kModule, "1234"); }

  static void script(const std::string& text) {
    FakeToken::instance().reset();
    FakeToken::instance().script("key 01ab\n" + text);
  }

  static std::string digest(std::size_t length) { return base64(std::string(length, '\x5A')); }

  std::unique_ptr<Service> service = authorizedService();
};

TEST_F(Signing, WrapsTheDigestByItsLength) {
  const std::pair<std::size_t, const char*> kCases[]{
      {16, "3020300c06082a864886f70d020505000410"},
      {20, "3021300906052b0e03021a05000414"},
      {32, "3031300d060960864801650304020105000420"}};
  for (const auto& [length, prefix] : kCases) {
    script("log pin\ncertificate 01ab hex 00\nkey 01ab");
    EXPECT_EQ(service->SignPkcs1Base64(kCertId, digest(length)).size(), 354U);  // 256 bytes, CR LF
    const std::string data = prefix + hex(std::string(length, '\x5A'));
    EXPECT_EQ(log(),
              "C_Initialize arguments=null -> 0x0\n"
              "C_GetSlotList tokenPresent=1 list=null count=10 -> 0x0 count=1\n"
              "C_GetSlotList tokenPresent=1 list=set count=1 -> 0x0 count=1\n"
              "C_OpenSession slot=1 flags=0x4 application=null notify=null -> 0x0 session=1\n"
              "C_Login session=1 user=1 pinLength=4 pin=1234 -> 0x0\n"
              "C_FindObjectsInit session=1 0x0=0300000000000000 0x102=01ab -> 0x0\n"
              "C_FindObjects session=1 maximum=1 -> 0x0 count=1 object=1\n"
              "C_FindObjectsFinal session=1 -> 0x0\n"
              "C_SignInit session=1 mechanism=0x1 parameter=null:0 key=1 -> 0x0\n"
              "C_Sign session=1 data=" +
                  data + " signature=buffer:2048 -> 0x0 length=256\n" +
                  "C_Logout session=1 -> 0x0\n"
                  "C_CloseSession session=1 -> 0x0\n"
                  "C_Finalize reserved=null -> 0x0\n");
    EXPECT_EQ(errorOf(*service), "0 0 ");
  }
}

TEST_F(Signing, BadInputIsRefusedOnlyAfterTheLogin) {
  for (const unsigned int length : {1U, 15U, 17U, 19U, 21U, 31U, 33U, 48U, 64U}) {
    script("");
    EXPECT_EQ(service->SignPkcs1Base64(kCertId, digest(length)), "");
    EXPECT_EQ(service->LastError(), 3) << length;
    EXPECT_EQ(service->LastErrorMessage(), "");
    EXPECT_EQ(calls(), kLoggedIn + kEnd);
  }
  const std::pair<std::string, std::string> kCases[]{
      {kCertId, ""}, {kCertId, "!"}, {"!", digest(32)}, {"", digest(32)}};
  for (const auto& [certId, text] : kCases) {
    script("");
    EXPECT_EQ(service->SignPkcs1Base64(certId, text), "");
    EXPECT_EQ(service->LastError(), 3);
    EXPECT_NE(service->LastLowLevelError(), 0);
    EXPECT_EQ(calls(), kLoggedIn + kEnd);
  }
}

TEST_F(Signing, AFailedCallEndsWhatWasBegun) {
  const std::string found = kLoggedIn + "FindObjectsInit FindObjects FindObjectsFinal ";
  const Outcome kCases[]{
      {"fail C_FindObjectsInit 1 CKR_DEVICE_ERROR", kLoggedIn + "FindObjectsInit " + kEnd,
       "12 48 Find objects init"},
      {"fail C_FindObjects 1 CKR_DEVICE_ERROR", found + kEnd, "12 48 Find first object"},
      {"lie found 1 0", found + kEnd, "0 0 "},  // no such key
      {"fail C_SignInit 1 CKR_KEY_FUNCTION_NOT_PERMITTED", found + "SignInit " + kEnd,
       "12 104 sign init new"},
      {"fail C_Sign 1 CKR_PIN_INCORRECT", found + "SignInit Sign " + kEnd, "5 160 sign final"},
      {"signature 2049", found + "SignInit Sign " + kEnd, "12 336 sign final"},
      {"lie signature 1 2049", found + "SignInit Sign " + kEnd, "12 336 sign final"},
      {"lie signature 1 ones", found + "SignInit Sign " + kEnd, "12 336 sign final"},
      {"lie signature 1 0", found + "SignInit Sign " + kEnd, "0 0 "}};
  expectOutcomes("key 01ab\n", kCases, [](Service& fresh) {
    const std::string signature = fresh.SignPkcs1Base64(kCertId, digest(32));
    EXPECT_FALSE(MissingPin() || InvalidPin());  // only a login changes the registry
    EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 0);
    return signature;
  });
}

TEST_F(Signing, FailuresOfTheEndingCallsDoNotSpoilTheSignature) {
  script(
      "signature 2048\nlie found 1 3\nfail C_FindObjectsFinal 1 CKR_DEVICE_ERROR\n"
      "fail C_Logout 1 CKR_DEVICE_ERROR\nfail C_CloseSession 1 CKR_DEVICE_ERROR\n"
      "fail C_Finalize 1 CKR_DEVICE_ERROR");
  EXPECT_NE(service->SignPkcs1Base64(kCertId, digest(32)), "");
  EXPECT_EQ(errorOf(*service), "0 0 ");
  EXPECT_EQ(calls(),
            kLoggedIn + "FindObjectsInit FindObjects FindObjectsFinal SignInit Sign " + kEnd);
}

TEST_F(Signing, ASecondSigningLogsInAgainAndAKeyOfAnotherIdIsNotFound) {
  script("");
  EXPECT_NE(service->SignPkcs1Base64(kCertId, digest(20)), "");
  EXPECT_NE(service->SignPkcs1Base64(kCertId, digest(20)), "");
  EXPECT_EQ(FakeToken::instance().callsOf("C_Login").size(), 2U);
  EXPECT_EQ(service->SignPkcs1Base64("AQ==", digest(20)), "");
  EXPECT_EQ(errorOf(*service), "0 0 ");
}

}  // namespace
