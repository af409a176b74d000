#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/Bytes.h"

namespace test_support {

/// Attributes of a name in order: OpenSSL's short names ("CN", "emailAddress") and UTF-8 values.
using NameFields = std::vector<std::pair<std::string, std::string>>;

/// What a certificate made at run time holds.
struct CertificateFields {
  NameFields subject{{"C", "CR"}, {"CN", "Signer"}};
  /// Further extensions in the syntax of OpenSSL's configuration, "DER:..." included.
  std::vector<std::pair<std::string, std::string>> extensions{
      {"keyUsage", "critical,digitalSignature,nonRepudiation"}};
  /// Validity in seconds from now.
  long notBefore = -3600;
  long notAfter = 3600;
};

/// DER of a certificate by "Test Authority" with an elliptic-curve key of this process.
std::string makeCertificate(const CertificateFields& fields);

/// SHA-1 of the DER `SubjectPublicKeyInfo` of the key in every certificate made here.
std::string publicKeySha1();

/// What the operator gives pages for a domain list: its signature by the build's development key.
std::string signDomains(std::string_view list);

std::string base64(std::string_view bytes);

}  // namespace test_support
