#include "tests/support/TestCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <memory>
#include <type_traits>

#include "tests/support/Require.h"

namespace test_support {

namespace {

template <typename Object, auto Free>
using Handle = std::unique_ptr<Object, std::integral_constant<decltype(Free), Free>>;
using Key = Handle<EVP_PKEY, EVP_PKEY_free>;

const unsigned char* unsignedBytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

EVP_PKEY* certificateKey() {
  static const Key key(EVP_EC_gen("P-256"));
  return key.get();
}

/// The DER that one of OpenSSL's i2d functions makes.
template <typename Encode, typename Object>
std::string encoded(Encode encode, Object* object) {
  std::string text(static_cast<std::size_t>(encode(object, nullptr)), '\0');
  auto* der = reinterpret_cast<unsigned char*>(text.data());
  encode(object, &der);
  return text;
}

void fillName(X509_NAME* name, const NameFields& fields) {
  for (const auto& [type, value] : fields) {
    require(X509_NAME_add_entry_by_txt(name, type.c_str(), MBSTRING_UTF8, unsignedBytes(value),
                                       static_cast<int>(value.size()), -1, 0) == 1,
            "name");
  }
}

}  // namespace

std::string makeCertificate(const CertificateFields& fields) {
  const Handle<X509, X509_free> owner(X509_new());
  X509* const certificate = owner.get();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), fields.notBefore);
  X509_gmtime_adj(X509_getm_notAfter(certificate), fields.notAfter);
  X509_set_pubkey(certificate, certificateKey());
  fillName(X509_get_subject_name(certificate), fields.subject);
  fillName(X509_get_issuer_name(certificate), {{"CN", "Test Authority"}});
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  for (const auto& [name, value] : fields.extensions) {
    const Handle<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str()));
    require(X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
  }
  require(X509_sign(certificate, certificateKey(), EVP_sha256()) > 0, "sign certificate");
  return encoded(i2d_X509, certificate);
}

std::string publicKeySha1() {
  const std::string der = encoded(i2d_PUBKEY, certificateKey());
  std::string digest(SHA_DIGEST_LENGTH, '\0');
  SHA1(unsignedBytes(der), der.size(), reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

std::string signDomains(std::string_view list) {
  const Handle<BIO, BIO_free> file(BIO_new_file(DOMAINS_PRIVATE_KEY, "r"));
  require(file != nullptr, "open private key");
  const Key key(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  const Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  unsigned char signature[1024];
  std::size_t length = sizeof signature;
  require(
      EVP_DigestSignInit(context.get(), nullptr, EVP_sha1(), nullptr, key.get()) == 1 &&
          EVP_DigestSign(context.get(), signature, &length, unsignedBytes(list), list.size()) == 1,
      "sign domains");
  return base64({reinterpret_cast<const char*>(signature), length});
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), unsignedBytes(bytes),
                  static_cast<int>(bytes.size()));
  text.pop_back();  // the terminator
  return text;
}

}  // namespace test_support
