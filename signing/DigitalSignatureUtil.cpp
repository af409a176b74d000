#include "signing/DigitalSignatureUtil.h"

#include <cctype>
#include <utility>

DigitalSignatureUtil::DigitalSignatureUtil(
    std::string domainsSignature, std::string signedDomains,
    std::string pageAddress)  // NOLINT(performance-unnecessary-value-param): the interface's type
    : signature(std::move(domainsSignature)),
      currentDomain(extractDomainName(trim(pageAddress))),
      domains(std::move(signedDomains)) {
  LoadDomains(domains);
}

std::string DigitalSignatureUtil::trim(std::string_view s) {
  std::string result;
  bool pendingSpace = false;
  for (const char character : s) {
    if (character == ' ') {
      pendingSpace = !result.empty();
      continue;
    }
    if (pendingSpace) {
      result.push_back(' ');
      pendingSpace = false;
    }
    // The process never leaves the "C" locale: only A to Z change.
    result.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(character))));
  }
  return result;
}
