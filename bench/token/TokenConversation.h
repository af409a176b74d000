#pragma once

#include <string>
#include <string_view>

#include "bench/driver/Child.h"

/// A token for the benchmarks: where SoftHSM finds it, and what the host needs to use it.
struct BenchToken {
  /// @param folder made by demo/make-token, holds softhsm2.conf and the tokens.
  BenchToken(const std::string& folder, std::string pin, const std::string& initializeFile);

  std::vector<std::string> environment;
  std::string pin;
  std::string initialize;  ///< the Initialize request, with a signed domain list
};

/// A request about a token, and the member of the answer that holds its result.
struct TokenRequest {
  const char* text;
  const char* resultName;
};

// The token's signing certificate has the CKA_ID 01. All subjects sign a digest of 32 zero bytes.
inline constexpr TokenRequest kList{R"({"command":2})", "certificates"};
inline constexpr TokenRequest kRetrieve{R"({"command":4,"certId":"AQ=="})", "certificate"};
inline constexpr TokenRequest kSign{
    R"({"command":5,"certId":"AQ==","digest":"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA="})",
    "pkcs1"};

/// The host in conversation about one token. A result that is empty ends the benchmark.
class TokenConversation {
 public:
  TokenConversation(const std::string& host, const BenchToken& token);

  /// Returns the number of certificates listed.
  std::size_t list();
  /// Signs with the PIN already given, see `enterPin`.
  void sign();
  /// The answer to a request as it came, valid until the next one: what is timed.
  std::string_view ask(const TokenRequest& request) { return child.ask(request.text); }
  /// The result in an answer.
  static std::string result(const TokenRequest& request, std::string_view answer);
  /// Provokes the question for the PIN with a first signing, then answers it.
  void enterPin();

  Child& process() { return child; }

 private:
  Child child;
  std::string pin;
};
