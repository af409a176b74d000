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

/// RSA PKCS#1 v1.5 signature with a PEM private key: over a digest that is named as OpenSSL does,
/// or in base64 over SHA-1 of the text.
std::string signDigest(const std::string& pemFile, const char* hash, std::string_view digest);
std::string signSha1(const std::string& pemFile, std::string_view text);

std::string base64(std::string_view bytes);

}  // namespace test_support
