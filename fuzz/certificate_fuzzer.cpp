// Certificate decoding and the text form of names, over bytes that a hostile token may return.
#include <nss.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "signing/CertificateDecoding.h"
#include "signing/NameText.h"
#include "tests/support/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using certificate::EQMode;
  static const bool started = NSS_NoDB_Init(nullptr) == SECSuccess;
  require(started);
  std::vector<std::uint8_t> bytes(data, data + size);
  const SECItem item{siBuffer, bytes.data(), static_cast<unsigned int>(size)};
  const CertificateHandle decoded =
      certificate::CERT_DecodeDERCertificate(item, size % 2 == 0, "fuzz");
  require(!decoded || (decoded->subjectKeyID.len > 0 && decoded->keyUsage <= 255));
  const auto* const source = reinterpret_cast<const char*>(data);
  for (EQMode mode : {EQMode::kMinimal, EQMode::kMinimalQuoted, EQMode::kFull}) {
    EQMode used = mode;
    std::string text(certificate::cert_RFC1485_GetRequiredLen(source, size, &mode) + 1, '?');
    require(certificate::escapeAndQuote(text.data(), text.size(), source, size, &used) ==
            SECSuccess);
    require(std::strlen(text.c_str()) + 1 == text.size() && used == mode);
  }
  return 0;
}
