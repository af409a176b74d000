#include "tests/support/TestCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace test_support {

namespace {

template <auto Free>
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    Free(object);
  }
};
template <typename Object, auto Free>
using Handle = std::unique_ptr<Object, Release<Free>>;

using Key = Handle<EVP_PKEY, EVP_PKEY_free>;

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("OpenSSL: ") + what);
}

EVP_PKEY* certificateKey() {
  static const Key key(EVP_EC_gen("P-256"));
  require(key != nullptr, "key");
  return key.get();
}

/// The DER that one of OpenSSL's i2d functions makes.
template <typename Encode, typename Object>
std::string encoded(Encode encode, Object* object) {
  unsigned char* der = nullptr;
  const int length = encode(object, &der);
  require(length > 0, "encode");
  std::string text(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
  OPENSSL_free(der);
  return text;
}

void fillName(X509_NAME* name, const NameFields& fields) {
  for (const auto& [type, value] : fields) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(value.data());
    require(X509_NAME_add_entry_by_txt(name, type.c_str(), MBSTRING_UTF8, bytes,
                                       static_cast<int>(value.size()), -1, 0) == 1,
            "name");
  }
}

}  // namespace

std::string makeCertificate(const CertificateFields& fields) {
  const Handle<X509, X509_free> certificate(X509_new());
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), fields.notBefore);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), fields.notAfter);
  X509_set_pubkey(certificate.get(), certificateKey());
  fillName(X509_get_subject_name(certificate.get()), fields.subject);
  fillName(X509_get_issuer_name(certificate.get()), {{"CN", "Test Authority"}});
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate.get(), certificate.get(), nullptr, nullptr, 0);
  for (const auto& [name, value] : fields.extensions) {
    const Handle<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str()));
    require(extension != nullptr, "extension");
    X509_add_ext(certificate.get(), extension.get(), -1);
  }
  require(X509_sign(certificate.get(), certificateKey(), EVP_sha256()) > 0, "sign certificate");
  return encoded(i2d_X509, certificate.get());
}

std::string publicKeySha1() {
  const std::string der = encoded(i2d_PUBKEY, certificateKey());
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char*>(der.data()), der.size(), digest);
  return {reinterpret_cast<const char*>(digest), sizeof digest};
}

std::string signSha1(const std::string& pemFile, std::string_view text) {
  const Handle<std::FILE, std::fclose> file(std::fopen(pemFile.c_str(), "r"));
  require(file != nullptr, "open private key");
  const Key key(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  require(key != nullptr, "read private key");
  const Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())), '\0');
  std::size_t length = signature.size();
  require(
      EVP_DigestSignInit(context.get(), nullptr, EVP_sha1(), nullptr, key.get()) == 1 &&
          EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                         reinterpret_cast<const unsigned char*>(text.data()), text.size()) == 1,
      "sign");
  return base64(signature);
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    text += kDigits[static_cast<unsigned char>(c) >> 4U];
    text += kDigits[static_cast<unsigned char>(c) & 0x0FU];
  }
  return text;
}

}  // namespace test_support
