// The texts of an initialisation: domain list, page address and distinguished names.
#include <nss.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "signing/DigitalSignatureUtilPkcs11.h"

namespace {

class Service : public DigitalSignatureUtilPkcs11 {
 public:
  explicit Service(const std::string& text) : DigitalSignatureUtilPkcs11("", text, text, text) {
    require(domains == text && signature == text && LastError() == 0);
    const auto pieces = 1 + std::count(text.begin(), text.end(), '|');
    require(domainList.size() <= static_cast<std::size_t>(pieces));
    require(trim(currentDomain).size() <= text.size());
    for (std::size_t i = 0; i + 1 < domainList.size(); ++i) {
      require(!domainList[i].empty() && trim(domainList[i]) == domainList[i]);
    }
    require(!IsAuthorized());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = NSS_NoDB_Init(nullptr) == SECSuccess;
  require(started);
  const std::string text(reinterpret_cast<const char*>(data), size);
  Service service(text);
  require(Service::extractDomainName(text).size() <= size);
  for (const auto& name : service.GetCADistinguishedNames(text)) {
    require(!name.empty() && Service::AreMatch(name, name));
    require(Service::HasDistinguishedName({name}, name));
  }
  return 0;
}
