// A long conversation leaves the process as it was after its first few hundred requests.
#include <gtest/gtest.h>

#include <random>

#include "tests/host/TokenHost.h"

namespace {

// A sanitized process is an order of magnitude slower.
constexpr int kMixedRequests = kSanitized ? 5'000 : 100'000;
constexpr int kWarmUp = 500;
// Half of what the smallest block, lost at every mixed request, would come to.
constexpr long kToleranceKilobytes = kSanitized ? 1'000'000 : kMixedRequests * 16 / 1000;

TEST(Endurance, MixedRequestsOnTheFakeToken) {
  const std::string tooLong = lengthBytes(1000);
  const std::string initialize = frame(initializeRequest());
  // What goes to standard input, and how many answers it has.
  const std::pair<std::string, int> exchanges[] = {
      {frame(kVersionRequest), 1},
      {frame(pinCharRequest("1")), 1},
      {frame(R"({"command":7})"), 1},
      {frame(setPinRequest("1234567890123456789012345678901234567890")), 1},
      {frame(kListRequest), 1},
      {frame(kRetrieveRequest), 1},
      {frame(R"({"command":4,"certId":"not base64"})"), 1},  // Leaves its session open.
      {frame(kSignRequest), 1},
      {frame(R"({"command":5,"certId":"oQ==","digest":"AAEC"})"), 1},
      {frame(initializeRequest("")) + frame(kListRequest) + initialize, 3},
      {frame("not json"), 0},
      {frame("{\"command\":8"), 0},
      {frame(R"({"command":99,"deep":[[[[{"a":[1,2,{"b":"\u00e9"}]}]]]]})"), 0},
      {frame("{\"command\" 8}"), 0},
      {tooLong + tooLong + frame(kVersionRequest), 3},
  };
  std::minstd_rand random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order every time
  const TemporaryFolder folder;
  folder.write("script",
               "pin *\naccept second C_Initialize\nkey a1\ncertificate a1 hex 3003020101\n");
  HostProcess host({}, {"env", "SIGNING_HOST_PKCS11_MODULE=" FAKE_TOKEN_MODULE,
                        "FAKE_TOKEN_SCRIPT=" + folder.file("script")});
  for (const std::string& request : {initializeRequest(), kSignRequest, setPinRequest("1")}) {
    host.ask(request);
  }
  // Threads, and in steps of 64 the room for descriptors.
  const auto held = [&] {
    return statusOf(host.pid(), "Threads") + statusOf(host.pid(), "FDSize");
  };
  std::string early;
  long kilobytes = 0;
  for (int sent = 0; sent < kMixedRequests; ++sent) {
    const auto& [bytes, answers] = exchanges[random() % std::size(exchanges)];
    host.send(bytes);
    for (int answer = 0; answer < answers; ++answer) {
      ASSERT_TRUE(host.hear().starts_with("{\n\t\"command\" : ")) << bytes;
    }
    if (sent == kWarmUp) {
      early = held();
      kilobytes = std::stol(statusOf(host.pid(), "VmRSS"));
    }
  }
  EXPECT_NE(told(nlohmann::json::parse(host.ask(kSignRequest))), "");
  EXPECT_EQ(held(), early);
  EXPECT_LT(std::stol(statusOf(host.pid(), "VmRSS")), kilobytes + kToleranceKilobytes);
  host.say(kEndRequest);
  EXPECT_EQ(host.hearAll(), "");
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(host.standardError(), "");
}

}  // namespace
