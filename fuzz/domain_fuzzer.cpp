// The texts of an initialisation: a signed domain list in the first line, a page address after it,
// and distinguished names. The verdict must be that of a naive reading of the rules.
#include <nss.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "signing/DigitalSignatureUtilPkcs11.h"
#include "tests/support/Require.h"
#include "tests/support/TestCertificate.h"

namespace {

/// The words between spaces, one space between them, A to Z lowered.
std::string normal(const std::string& text) {
  std::istringstream pieces(text);
  std::string result;
  for (std::string word; std::getline(pieces, word, ' ');) {
    if (!word.empty()) result += (result.empty() ? "" : " ") + word;
  }
  for (char& c : result) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 'a' - 'A' : c);
  return result;
}

std::string hostOf(const std::string& address) {
  std::string host = normal(address);
  if (host.find("://") != std::string::npos) host.erase(0, host.find("://") + 3);
  return host.substr(0, host.find_first_of(":/?", 1));
}

std::vector<std::string> entriesOf(std::string list) {
  std::vector<std::string> entries;
  for (std::size_t bar = 0; (bar = list.find('|')) != std::string::npos; list.erase(0, bar + 1)) {
    entries.push_back(normal(list.substr(0, bar)));
  }
  entries.push_back(list);  // the last stays as it is
  std::erase(entries, "");
  return entries;
}

class Service : public DigitalSignatureUtilPkcs11 {
 public:
  Service(const std::string& list, const std::string& page)
      : DigitalSignatureUtilPkcs11("", test_support::signDomains(list), list, page) {
    require(domainList == entriesOf(list), "the entries");
    require(currentDomain == hostOf(page), "the host name");
    const bool authorized = std::ranges::any_of(domainList, [&](const std::string& entry) {
      return currentDomain.ends_with(entry) &&
             currentDomain.find(entry) == currentDomain.size() - entry.size();
    });
    require(IsAuthorized() == authorized, "the verdict");
    require(LastError() == (authorized ? 0 : 9) && !invalidDomainsSignature, "the code");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = NSS_NoDB_Init(nullptr) == SECSuccess;
  require(started);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t line = std::min(text.find('\n'), size);
  Service service(text.substr(0, line), text.substr(std::min(line + 1, size)));
  for (const auto& name : service.GetCADistinguishedNames(text)) {
    require(!name.empty() && Service::AreMatch(name, name));
    require(Service::HasDistinguishedName({name}, name));
  }
  return 0;
}
