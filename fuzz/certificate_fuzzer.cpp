// Certificate decoding and the text form of names, over bytes that a hostile token may return.
#include <nss.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "signing/CertificateDecoding.h"
#include "signing/NameText.h"

namespace {

using certificate::EQMode;

void escape(const std::string& source, std::optional<EQMode> mode) {
  EQMode forLength = mode.value_or(EQMode::kMinimal);
  const std::size_t length = certificate::cert_RFC1485_GetRequiredLen(source.data(), source.size(),
                                                                      mode ? &forLength : nullptr);
  std::vector<char> text(length + 1);
  require(certificate::escapeAndQuote(text.data(), text.size(), source.data(), source.size(),
                                      mode ? &*mode : nullptr) == SECSuccess);
  require(std::strlen(text.data()) == length);
}

void append(const SECItem& item, const std::string& source) {
  std::vector<char> buffer(item.len);
  unsigned int left = item.len;
  char* position = certificate::appendItemToBuf(buffer.data(), &item, &left);
  position = certificate::appendStringToBuf(position, source.c_str(), &left);
  require(buffer.data() + (item.len - left) == position);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = NSS_NoDB_Init(nullptr) == SECSuccess;
  require(started);
  std::vector<std::uint8_t> bytes(data, data + size);
  const std::string source(bytes.begin(), bytes.end());
  const SECItem item{siBuffer, bytes.data(), static_cast<unsigned int>(size)};
  const CertificateHandle decoded =
      certificate::CERT_DecodeDERCertificate(item, size % 2 == 0, "fuzz");
  require(!decoded || (decoded->subjectKeyID.len > 0 && decoded->keyUsage <= 255));
  for (const auto mode : {EQMode::kMinimal, EQMode::kMinimalQuoted, EQMode::kFull}) {
    escape(source, mode);
  }
  escape(source, std::nullopt);
  append(item, source);
  return 0;
}
