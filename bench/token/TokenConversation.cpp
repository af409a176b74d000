#include "bench/token/TokenConversation.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "json/json.h"

namespace {

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

std::string TokenConversation::result(const TokenRequest& request, std::string_view answer) {
  std::string text = JSONWorker::parse(std::string(answer))[request.resultName].as_string();
  if (text.empty()) {
    fail("the host answered " + std::string(answer));
  }
  return text;
}

std::size_t TokenConversation::list() {
  // Records of issuer, subject and identifier, all joined by bars.
  const std::string listing = result(kList, ask(kList));
  return (static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '|')) + 1) / 3;
}

void TokenConversation::sign() { result(kSign, ask(kSign)); }

void TokenConversation::enterPin() {
  ask(kSign);
  child.ask(R"({"command":3,"pin":")" + pin + R"("})");
}
