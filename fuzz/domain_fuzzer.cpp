// The texts of an initialisation: domain list, page address and distinguished names.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "signing/DigitalSignatureUtil.h"

namespace {

using Util = DigitalSignatureUtil;

void require(bool holds) {
  if (!holds) std::abort();
}

/// The parts of the service that need no token.
class Service : public Util {
 public:
  explicit Service(const std::string& text) : Util(text, text, text) {
    require(domains == text && signature == text && LastError() == 0);
    const auto pieces = 1 + std::count(text.begin(), text.end(), '|');
    require(domainList.size() <= static_cast<std::size_t>(pieces));
    require(trim(currentDomain).size() <= text.size());
    for (std::size_t i = 0; i + 1 < domainList.size(); ++i) {
      require(!domainList[i].empty() && trim(domainList[i]) == domainList[i]);
    }
  }

  std::string ListCertificates(std::string) override { return {}; }
  bool IsInitialized() override { return false; }
  std::vector<NameValueMap> GetCADistinguishedNames(std::string names) override {
    return GetNameValueMaps(names);
  }
  std::string GetCertificateBase64(std::string) override { return {}; }
  std::string SignPkcs1Base64(std::string, std::string) override { return {}; }
  bool IsAuthorized() override { return false; }
  bool NeedConfigDir() override { return false; }
  void ClearPin() override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Service service(text);
  require(Util::extractDomainName(text).size() <= size);
  for (const auto& name : service.GetCADistinguishedNames(text)) {
    require(!name.empty() && Util::AreMatch(name, name));
    require(Util::HasDistinguishedName({name}, name));
  }
  return 0;
}
