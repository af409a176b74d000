#pragma once

#include <string>

#include "bench/driver/Child.h"

/// A token for the benchmarks: where SoftHSM finds it, and what the host needs to use it.
struct BenchToken {
  /// @param folder made by demo/make-token, holds softhsm2.conf and the tokens.
  BenchToken(const std::string& folder, std::string pin, const std::string& initializeFile);

  std::vector<std::string> environment;
  std::string pin;
  std::string initialize;  ///< the Initialize request, with a signed domain list
};

/// The host in conversation about one token. An answer that reports an error ends the benchmark.
class TokenConversation {
 public:
  TokenConversation(const std::string& host, const BenchToken& token);

  /// Returns the number of certificates listed.
  std::size_t list();
  void retrieve();
  /// Signs with the PIN already given, see `enterPin`.
  void sign();
  /// Provokes the question for the PIN with a first signing, then answers it.
  void enterPin();

  Child& process() { return child; }

 private:
  std::string result(const std::string& request, const char* member);

  Child child;
  std::string pin;
};
