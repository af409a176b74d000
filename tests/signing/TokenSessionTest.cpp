// The steps that all operations share: readiness, slot, session, login and its registry record.
#include <gtest/gtest.h>

#include "tests/signing/ServiceFixture.h"

namespace {

constexpr char kDigest[] = "AAECAwQFBgcICQoLDA0ODxAREhM=";  // 20 bytes
constexpr char kCertId[] = "AQ==";

class TokenSession : public ServiceTest {
 protected:
  std::unique_ptr<Service> service = authorizedService();
};

TEST_F(TokenSession, APinProblemStopsEveryOperationBeforeTheToken) {
  const std::pair<bool, int> kCases[]{{true, 5}, {false, 11}};
  for (const auto& [invalid, code] : kCases) {
    gPines["another module"].invalid = invalid;  // its PIN is missing in both cases
    EXPECT_EQ(service->ListCertificates(""), "");
    EXPECT_EQ(service->LastError(), code);
    EXPECT_EQ(service->GetCertificateBase64(kCertId), "");
    EXPECT_EQ(service->LastError(), code);
    EXPECT_EQ(service->SignPkcs1Base64(kCertId, kDigest), "");
    EXPECT_EQ(service->LastError(), code);
    EXPECT_EQ(service->LastErrorMessage(), "");
  }
  EXPECT_EQ(calls(), "");
}

TEST_F(TokenSession, TheFirstSlotWithATokenIsUsed) {
  const Outcome kCases[]{
      {"slots 7 9",
       "Initialize GetSlotList GetSlotList OpenSession FindObjectsInit FindObjects "
       "FindObjectsFinal CloseSession Finalize",
       "0 0 "},
      {"slots none", "Initialize GetSlotList Finalize", "12 0 No se encontro ningun slot"},
      {"lie slots 2 0", "Initialize GetSlotList GetSlotList Finalize",
       "12 0 No se encontro ningun slot"},
      // More tokens than a moment ago: the first is still the first.
      {"slots 7\nlie slots 2 1000",
       "Initialize GetSlotList GetSlotList OpenSession FindObjectsInit FindObjects "
       "FindObjectsFinal CloseSession Finalize",
       "0 0 "},
      {"lie slots 1 ones", "Initialize GetSlotList Finalize", "12 2 get slot list"},
      {"fail C_Initialize 1 CKR_DEVICE_ERROR", "Initialize", "12 48 C_Initialize failed"},
      {"fail C_GetSlotList 1 CKR_DEVICE_ERROR", "Initialize GetSlotList Finalize",
       "12 48 get slot list"},
      {"fail C_GetSlotList 2 CKR_BUFFER_TOO_SMALL", "Initialize GetSlotList GetSlotList Finalize",
       "12 336 get slot list"},
      {"fail C_OpenSession 1 CKR_PIN_LOCKED",
       "Initialize GetSlotList GetSlotList OpenSession Finalize", "5 164 open session"}};
  expectOutcomes("", kCases, [](Service& fresh) {
    std::string listing = fresh.ListCertificates("");
    EXPECT_FALSE(FakeToken::instance().isInitialized());
    for (const std::string& call : FakeToken::instance().callsOf("C_OpenSession")) {
      EXPECT_EQ(call.find("slot=9"), std::string::npos);
      EXPECT_NE(call.find(" flags=0x4 application=null notify=null"), std::string::npos);
    }
    return listing;
  });
}

TEST_F(TokenSession, EveryRefusalOfALoginIsClassed) {
  struct Case {
    const char* returned;
    const char* error;
    bool pinRefused;
  };
  const Case kCases[]{{"CKR_PIN_INCORRECT", "5 160 Pin invalido para Certificado ZORAL", true},
                      {"CKR_PIN_INVALID", "5 161 Pin invalido para Certificado ZORAL", true},
                      {"CKR_PIN_LEN_RANGE", "5 162 Pin invalido para Certificado ZORAL", true},
                      {"CKR_PIN_EXPIRED", "12 163 C_Login", false},  // the PIN itself was right
                      {"CKR_PIN_LOCKED", "5 164 Pin invalido para Certificado ZORAL", true},
                      {"CKR_USER_ALREADY_LOGGED_IN", "12 256 C_Login", false}};
  for (const Case& each : kCases) {
    FakeToken::instance().reset();
    FakeToken::instance().script(std::string("fail C_Login * ") + each.returned);
    gPines.clear();
    DigitalSignatureUtil::SetPin(kModule, "1234");
    auto fresh = authorizedService();
    EXPECT_EQ(fresh->SignPkcs1Base64(kCertId, kDigest), "");
    EXPECT_EQ(errorOf(*fresh), each.error);
    EXPECT_EQ(calls(),
              "Initialize GetSlotList GetSlotList OpenSession Login CloseSession Finalize");
    EXPECT_EQ(gPines[kModule].invalid, each.pinRefused);
    EXPECT_EQ(gPines[kModule].retries, each.pinRefused ? 1 : 0);
    EXPECT_EQ(gPines[kModule].pin, "1234");
    // A refused PIN is never tried on the card again.
    EXPECT_EQ(fresh->SignPkcs1Base64(kCertId, kDigest), "");
    EXPECT_EQ(FakeToken::instance().callsOf("C_Login").size(), each.pinRefused ? 1 : 2);
    EXPECT_EQ(gPines[kModule].retries, each.pinRefused ? 1 : 0);
    EXPECT_EQ(fresh->LastError(), each.pinRefused ? 5 : 12);
  }
}

TEST_F(TokenSession, TheRetryCountOutlivesANewPin) {
  FakeToken::instance().script("pin 9999");
  for (const char* pin : {"1111", "2222"}) {
    DigitalSignatureUtil::SetPin(kModule, pin);
    EXPECT_EQ(service->SignPkcs1Base64(kCertId, kDigest), "");
  }
  EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 2);
  DigitalSignatureUtil::SetPin(kModule, "9999");
  EXPECT_EQ(service->SignPkcs1Base64(kCertId, kDigest), "");
  EXPECT_EQ(service->LastError(), 0);  // no such key, but logged in
  EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 2);
}

TEST_F(TokenSession, WithoutAPinTheFirstSigningAsksForOneAndLaterOnesDoNotReachTheToken) {
  EXPECT_EQ(service->SignPkcs1Base64(kCertId, kDigest), "");
  EXPECT_EQ(errorOf(*service), "11 0 No se ha definido el pin para Certificado ZORAL");
  EXPECT_EQ(calls(), "Initialize GetSlotList GetSlotList OpenSession CloseSession Finalize");
  EXPECT_EQ(gPines.size(), 1U);
  EXPECT_EQ(service->SignPkcs1Base64(kCertId, kDigest), "");
  EXPECT_EQ(service->LastError(), 11);
  EXPECT_EQ(FakeToken::instance().callsOf("C_Initialize").size(), 1U);
}

TEST_F(TokenSession, ALoginWithAnEmptyOrRefusedPinDoesNotAskTheToken) {
  gPines[kModule].invalid = true;
  EXPECT_FALSE(service->Login(1));
  EXPECT_EQ(errorOf(*service), "11 0 No se ha definido el pin para Certificado ZORAL");
  EXPECT_EQ(gPines[kModule].retries, 0);
  gPines[kModule].pin = "1234";
  EXPECT_FALSE(service->Login(1));
  EXPECT_EQ(errorOf(*service), "5 0 Pin invalido para Certificado ZORAL");
  EXPECT_EQ(gPines[kModule].retries, 1);
  EXPECT_EQ(calls(), "");
}

TEST_F(TokenSession, ClearPinForgetsEveryModule) {
  gPines["a"].pin = "1";
  gPines[kModule].pin = "2";
  service->ClearPin();
  EXPECT_TRUE(gPines.empty());
}

}  // namespace
