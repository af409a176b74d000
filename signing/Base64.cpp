#include "signing/Base64.h"

#include <nssb64.h>

ItemHandle decodeBase64(std::string_view text) {
  // NSS counts in 32 bits: of a longer text only a prefix is decoded.
  return ItemHandle(NSSBase64_DecodeBuffer(nullptr, nullptr, text.data(),
                                           static_cast<unsigned int>(text.size())));
}

std::string encodeBase64(std::span<unsigned char> bytes) {
  SECItem item{siBuffer, bytes.data(), static_cast<unsigned int>(bytes.size())};
  const NssText text(NSSBase64_EncodeItem(nullptr, nullptr, {}, &item));
  return text ? std::string(text.get()) : std::string();
}
