// A long conversation leaves the process as it was after its first rounds.
#include <gtest/gtest.h>

#include "tests/host/TokenHost.h"

namespace {

constexpr int kRounds = kSanitized ? 300 : 6'000;  // A sanitized process is far slower.
constexpr int kWarmUp = 50;
// What a hundred bytes, lost once a round, would come to.
constexpr long kToleranceKilobytes = kSanitized ? 1'000'000 : kRounds * 100 / 1000;

TEST(Endurance, AHundredThousandMixedRequests) {
  std::string round;
  for (const std::string& request :
       {kVersionRequest, initializeRequest(""), kListRequest, initializeRequest(), kListRequest,
        setPinRequest("1234567890123456789012345678901234567890"), pinCharRequest("1"),
        std::string(R"({"command":7})"), kRetrieveRequest, kSignRequest, kSignRequest,
        std::string(R"({"command":5,"certId":"oQ==","digest":"AAEC"})"),
        std::string(R"({"command":4,"certId":"!"})")}) {  // leaves its session open
    round += frame(request);
  }
  const int answers = 13 + 2;
  for (const char* dropped : {"not json", "{\"command\":8", "{\"command\" 8}",
                              R"({"command":99,"deep":[[[[{"a":[1,2,{"b":"\u00e9"}]}]]]]})"}) {
    round += frame(dropped);
  }
  round += lengthBytes(1000) + lengthBytes(1000);
  const TemporaryFolder folder;
  folder.write("script", "key a1\ncertificate a1 hex 3003020101\n");
  HostProcess host({}, {"env", "SIGNING_HOST_PKCS11_MODULE=" FAKE_TOKEN,
                        "FAKE_TOKEN_SCRIPT=" + folder.file("script")});
  // Threads, and in steps of 64 the room for descriptors.
  const auto held = [&] {
    return statusOf(host.pid(), "Threads") + statusOf(host.pid(), "FDSize");
  };
  const auto kilobytes = [&] { return std::stol(statusOf(host.pid(), "VmRSS")); };
  std::string early;
  long before = 0;
  for (int rounds = 0; rounds < kRounds; ++rounds) {
    if (rounds == kWarmUp) {
      early = held();
      before = kilobytes();
    }
    host.send(round);
    for (int answer = 0; answer < answers; ++answer) {
      ASSERT_TRUE(host.hear().starts_with("{\n\t\"command\" : ")) << rounds << " " << answer;
    }
  }
  EXPECT_GT(told(nlohmann::json::parse(host.ask(kSignRequest))).size(), 256U);
  EXPECT_EQ(held(), early);
  EXPECT_LT(kilobytes(), before + kToleranceKilobytes);
  host.say(kEndRequest);
  EXPECT_EQ(host.hearAll(), "");
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(host.standardError(), "");
}

}  // namespace
