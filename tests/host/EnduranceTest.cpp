// A long conversation leaves the process as it was after its first few hundred requests.
#include <gtest/gtest.h>

#include <random>

#include "tests/host/TokenHost.h"

namespace {

using nlohmann::json;

// A sanitized process is an order of magnitude slower.
constexpr int kMixedRequests = kSanitized ? 5'000 : 100'000;
constexpr int kWarmUp = 500;
// Half of what the smallest block, lost at every mixed request, would come to.
constexpr long kToleranceKilobytes = kSanitized ? 1'000'000 : kMixedRequests * 16 / 1000;

/// What of a process leaks would enlarge: threads, and in steps of 64 the room for descriptors.
std::string holdings(const HostProcess& host) {
  return statusOf(host.pid(), "Threads") + " " + statusOf(host.pid(), "FDSize");
}

TEST(Endurance, MixedRequestsOnTheFakeToken) {
  const std::string tooLong = lengthBytes(1000);
  const std::string initialize = frame(initializeRequest());
  // Weight, what goes to standard input, and how many answers it has.
  const std::tuple<int, std::string, int> exchanges[] = {
      {20, frame(kVersionRequest), 1},
      {20, frame(pinCharRequest("1")), 1},
      {25, frame(R"({"command":7})"), 1},
      {5, frame(setPinRequest("1234567890123456789012345678901234567890")), 1},
      {40, frame(kListRequest), 1},
      {20, frame(kRetrieveRequest), 1},
      {5, frame(R"({"command":4,"certId":"not base64"})"), 1},  // Leaves its session open.
      {40, frame(kSignRequest), 1},
      {5, frame(R"({"command":5,"certId":"oQ==","digest":"AAEC"})"), 1},
      {1, initialize, 1},
      {1, frame(initializeRequest("", "", "")) + frame(kListRequest) + initialize, 3},
      {5, frame("not json"), 0},
      {5, frame("{\"command\":8"), 0},
      {5, frame(R"({"command":99,"deep":[[[[{"a":[1,2,{"b":"\u00e9"}]}]]]]})"), 0},
      {5, frame("{\"command\" 8}"), 0},
      {5, tooLong, 1},
      {2, tooLong + tooLong + frame(kVersionRequest), 3},
  };
  std::vector<int> weights;
  for (const auto& exchange : exchanges) weights.push_back(std::get<0>(exchange));
  std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
  std::minstd_rand order(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order every time

  TemporaryFolder folder;
  folder.write("script",
               "pin *\naccept second C_Initialize\nkey a1\ncertificate a1 hex 3003020101\n");
  HostProcess host({}, {"env", "SIGNING_HOST_PKCS11_MODULE=" FAKE_TOKEN_MODULE,
                        "FAKE_TOKEN_SCRIPT=" + folder.file("script")});
  for (const std::string& request : {initializeRequest(), kSignRequest, setPinRequest("1")}) {
    host.ask(request);
  }
  std::string early;
  long kilobytes = 0;
  for (int sent = 0; sent < kMixedRequests; ++sent) {
    const auto& [weight, bytes, answers] = exchanges[choose(order)];
    host.send(bytes);
    for (int answer = 0; answer < answers; ++answer) {
      ASSERT_TRUE(host.hear().starts_with("{\n\t\"command\" : ")) << bytes;
    }
    if (sent == kWarmUp) {
      early = holdings(host);
      kilobytes = std::stol(statusOf(host.pid(), "VmRSS"));
    }
  }
  EXPECT_FALSE(json::parse(host.ask(kSignRequest))["pkcs1"].empty());
  EXPECT_EQ(holdings(host), early);
  EXPECT_LT(std::stol(statusOf(host.pid(), "VmRSS")), kilobytes + kToleranceKilobytes);
  host.say(kEndRequest);
  EXPECT_EQ(host.hearAll(), "");
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(host.standardError(), "");
}

}  // namespace
