// Readiness, login and error state, which all operations share.
#include <nss.h>
#include <prerror.h>
#include <sys/resource.h>

#include "tests/signing/ServiceFixture.h"

namespace {

class TokenSession : public ServiceTest {
 protected:
  std::unique_ptr<Service> service = authorizedService();
};

TEST_F(TokenSession, APinProblemStopsEveryOperationBeforeTheToken) {
  for (const int code : {5, 11}) {
    gPines["another module"].invalid = code == 5;  // its PIN is missing in both cases
    for (const Operation operation : kOperations) {
      EXPECT_EQ(operation(*service), "");
      EXPECT_EQ(service->LastError(), code);
      EXPECT_EQ(service->LastErrorMessage(), "");
    }
  }
  EXPECT_EQ(calls(), "");
}

TEST_F(TokenSession, ACodeSetWithTheAuthorisationStopsTheListingAlone) {
  struct Doubtful : Service {
    using Service::Service;
    bool IsAuthorized() override { return (lastError = 7) != 0; }
  } doubtful("", "", "");
  EXPECT_EQ(list(doubtful), "");
  EXPECT_EQ(errorOf(doubtful), "7 0 ");
  EXPECT_EQ(calls(), "");
  retrieve(doubtful);
  EXPECT_NE(calls(), "");
}

TEST_F(TokenSession, ALoginAsksTheTokenOnlyForAPinThatMayBeRightAndBlamesItForFourAnswers) {
  const std::string kNoPin = "11 0 No se ha definido el pin para Certificado ZORAL";
  EXPECT_EQ(sign(*service), "");
  EXPECT_EQ(errorOf(*service), kNoPin);
  EXPECT_EQ(calls(), "Initialize GetSlotList GetSlotList OpenSession CloseSession Finalize");
  EXPECT_EQ(gPines.size(), 1U);
  const std::string kRejected = " Pin invalido para Certificado ZORAL";
  // The PIN, its flag before, the token's answer; the error after.
  const std::tuple<std::string, bool, int, std::string> kCases[]{
      {"", true, 0xA0, kNoPin},
      {"12", true, 0xA0, "5 0" + kRejected},
      {"12", false, 0x9F, "12 159 C_Login"},
      {"12", false, 0xA0, "5 160" + kRejected},
      {"12", false, 0xA1, "5 161" + kRejected},
      {"12", false, 0xA2, "5 162" + kRejected},
      {"12", false, 0xA3, "12 163 C_Login"},  // expired: it was the right one
      {"12", false, 0xA4, "5 164" + kRejected},
      {"12", false, 0xA5, "12 165 C_Login"}};
  for (const auto& [pin, flagged, answer, error] : kCases) {
    SCOPED_TRACE(error);
    script("fail C_Login * " + std::to_string(answer));
    const auto fresh = authorizedService();
    PinInfoStruct& record = gPines[kModule];
    record.pin = pin;
    record.invalid = flagged;
    record.retries = 7;
    EXPECT_FALSE(fresh->Login(1));
    EXPECT_EQ(errorOf(*fresh), error);
    EXPECT_EQ(record.pin, pin);
    EXPECT_EQ(record.invalid, flagged || fresh->LastError() == 5);
    EXPECT_EQ(record.retries, fresh->LastError() == 5 ? 8 : 7);
    EXPECT_EQ(calls(), flagged ? "" : "Login");
  }
}

TEST_F(TokenSession, AnNsprErrorIsTakenWithItsTextAndAStaleOneToo) {
  PR_SetError(-5, 0);
  PR_SetErrorText(5, "hello");
  service->SetErrorInfo();
  EXPECT_EQ(errorOf(*service), "0 -5 hello");
  // NSS says nothing about a signature that is no base64: the old text stays.
  Service other("!", "a.test", "a.test");
  EXPECT_FALSE(other.IsAuthorized());
  EXPECT_EQ(errorOf(other), "10 -5 hello");
}

TEST_F(TokenSession, NssIsStoppedOnlyByTheServiceThatStartedIt) {
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

/// Without a free descriptor NSS cannot load its own module.
void runWithoutNss() {
  const rlimit none{3, 3};
  setrlimit(RLIMIT_NOFILE, &none);
  Service service("", "", "");
  EXPECT_FALSE(service.IsInitialized());
  EXPECT_FALSE(service.IsAuthorized());
  EXPECT_TRUE(service.NeedConfigDir());
  EXPECT_EQ(errorOf(service).substr(0, 8), "1 -5977 ");
  EXPECT_NE(service.LastErrorMessage(), "");
  for (const Operation operation : kOperations) {
    service.lastError = 0;
    EXPECT_EQ(operation(service), "");
    EXPECT_EQ(service.LastError(), 1);
  }
  EXPECT_TRUE(FakeToken::instance().calls().empty());
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(TokenSessionDeathTest, WithoutNssNothingIsDone) {
  if (SANITIZED != 0) GTEST_SKIP() << "the sanitizers need descriptors of their own";
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // in a process that never ran NSS
  EXPECT_EXIT(runWithoutNss(), testing::ExitedWithCode(0), "");
}

}  // namespace
