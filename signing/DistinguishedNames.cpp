#include <algorithm>
#include <cstdio>
#include <utility>

#include "signing/DigitalSignatureUtil.h"

namespace {

/// Spellings under which certificate viewers show the serial-number and state attributes.
constexpr std::pair<std::string_view, std::string_view> kAttributeAliases[]{
    {"identificador de objeto (2 5 4 5)", "serialnumber"},
    {"n\xFAmero de serie", "serialnumber"},  // ISO-8859-1
    {"oid.2.5.4.5", "serialnumber"},
    {"s", "st"},
};

std::string attributeName(std::string_view token) {
  std::string name = DigitalSignatureUtil::trim(token);
  for (const auto& [alias, stored] : kAttributeAliases) {
    if (name == alias) {
      return std::string(stored);
    }
  }
  return name;
}

}  // namespace

DigitalSignatureUtil::NameValueMap DigitalSignatureUtil::GetNameValueMap(std::string_view dn) {
  NameValueMap result;
  std::string name;
  std::size_t start = 0;
  for (std::size_t i = 0; i < dn.size(); ++i) {
    if (dn[i] == '=') {
      name = attributeName(dn.substr(start, i - start));
      start = i + 1;
    } else if (dn[i] == ',') {
      result[name] = trim(dn.substr(start, i - start));
      start = i + 1;
    }
  }
  // Unconditional, so a trailing "," stores an empty value under the last name.
  result[name] = trim(dn.substr(start));
  return result;
}

std::vector<DigitalSignatureUtil::NameValueMap> DigitalSignatureUtil::GetNameValueMaps(
    std::string_view text) {
  std::vector<NameValueMap> result;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('|', start), text.size());
    const std::string piece = trim(text.substr(start, end - start));
    if (!piece.empty()) {
      result.push_back(GetNameValueMap(piece));
    }
    start = end + 1;
  }
  return result;
}

bool DigitalSignatureUtil::AreMatch(const NameValueMap& a, const NameValueMap& b) { return a == b; }

bool DigitalSignatureUtil::HasDistinguishedName(const std::vector<NameValueMap>& list,
                                                const NameValueMap& dn) {
  return std::any_of(list.begin(), list.end(),
                     [&dn](const NameValueMap& entry) { return AreMatch(entry, dn); });
}

void DigitalSignatureUtil::PrintDistinguishedName(const NameValueMap& dn) {
  for (const auto& [name, value] : dn) {
    std::printf("%s=%s,", name.c_str(), value.c_str());
  }
  std::printf("\n");
}
