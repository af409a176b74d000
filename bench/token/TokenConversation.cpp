#include "bench/token/TokenConversation.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "json/json.h"

namespace {

// The token's signing certificate has the CKA_ID 01. All subjects sign a digest of 32 zero bytes.
constexpr const char* kRetrieve = R"({"command":4,"certId":"AQ=="})";
constexpr const char* kSign =
    R"({"command":5,"certId":"AQ==","digest":"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA="})";

std::string contents(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

BenchToken::BenchToken(const std::string& folder, std::string tokenPin,
                       const std::string& initializeFile)
    : environment{"SOFTHSM2_CONF=" + folder + "/softhsm2.conf",
                  "SIGNING_HOST_PKCS11_MODULE=" BENCH_PKCS11_MODULE},
      pin(std::move(tokenPin)),
      initialize(contents(initializeFile)) {}

TokenConversation::TokenConversation(const std::string& host, const BenchToken& token)
    : child({host}, token.environment), pin(token.pin) {
  child.ask(token.initialize);
}

std::string TokenConversation::result(const std::string& request, const char* member) {
  const std::string answer(child.ask(request));
  std::string text = JSONWorker::parse(answer)[member].as_string();
  if (text.empty()) {
    fail("the host answered " + answer);
  }
  return text;
}

std::size_t TokenConversation::list() {
  // Records of issuer, subject and identifier, all joined by bars.
  const std::string listing = result(R"({"command":2})", "certificates");
  return (static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '|')) + 1) / 3;
}

void TokenConversation::retrieve() { result(kRetrieve, "certificate"); }

void TokenConversation::sign() { result(kSign, "pkcs1"); }

void TokenConversation::enterPin() {
  child.ask(kSign);
  child.ask(R"({"command":3,"pin":")" + pin + R"("})");
}
