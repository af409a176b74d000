#include "signing/CertificateDecoding.h"

#include <gtest/gtest.h>
#include <nss.h>
#include <prtime.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/TestCertificate.h"

namespace {

using namespace std::string_literals;
using test_support::CertificateFields;
using test_support::makeCertificate;

std::string text(const SECItem& item) {
  return {reinterpret_cast<const char*>(item.data), item.len};
}

/// An e-mail list with a comma for every terminator but the last.
std::string joined(const char* list) {
  std::string all;
  for (; list != nullptr && *list != '\0'; list += std::strlen(list) + 1) all += list + ","s;
  return all;
}

class CertificateDecoding : public testing::Test {
 protected:
  CertificateDecoding() { NSS_NoDB_Init(nullptr); }
  ~CertificateDecoding() override { EXPECT_EQ(NSS_Shutdown(), SECSuccess); }

  CertificateHandle decode(const std::string& der, bool copyDER = true, const char* nickname = "") {
    // Exactly as long as the certificate, so that a sanitizer sees a read after its end.
    bytes = std::vector<unsigned char>(der.begin(), der.end());
    const SECItem item{siBuffer, bytes.data(), static_cast<unsigned int>(bytes.size())};
    return certificate::CERT_DecodeDERCertificate(item, copyDER, nickname);
  }

  CertificateHandle made(const CertificateFields& fields) {
    return decode(makeCertificate(fields));
  }

  std::vector<unsigned char> bytes;
};

TEST_F(CertificateDecoding, FillsTheRecord) {
  const std::string der = makeCertificate({});
  const CertificateHandle shared = decode(der, false, nullptr);
  EXPECT_TRUE(shared && shared->derCert.data == bytes.data() && shared->nickname == nullptr);
  char nickname[] = "Certificado";
  const CertificateHandle copied = decode(der, true, nickname);
  ASSERT_TRUE(copied);
  nickname[0] = '?';  // the copies do not point here
  bytes.assign(bytes.size(), 0);
  EXPECT_STREQ(copied->nickname, "Certificado");
  EXPECT_EQ(text(copied->derCert), der);
  EXPECT_STREQ(copied->subjectName, "CN=Signer,C=CR");
  EXPECT_STREQ(copied->issuerName, "CN=Test Authority");
  EXPECT_EQ(text(copied->subjectKeyID), test_support::publicKeySha1());
  EXPECT_EQ(copied->emailAddr, nullptr);
  EXPECT_EQ(copied->referenceCount, 1);
  EXPECT_EQ(CERT_CheckCertValidTimes(copied.get(), PR_Now(), PR_FALSE), secCertTimeValid);
}

TEST_F(CertificateDecoding, ReadsKeyUsageFromTheFirstByteAloneAndTheKeyIdentifier) {
  const std::string hash = test_support::publicKeySha1();
  const std::tuple<std::string, const char*, unsigned int, std::string> kCases[]{
      {"keyUsage", "keyAgreement,decipherOnly", 0x08, hash},
      {"keyUsage", "DER:030200FF", 0xFF, hash},
      {"keyUsage", "DER:030100", 0, hash},  // a bit string without a byte
      {"subjectKeyIdentifier", "DER:040107", 0xFF, "\x07"},
      {"subjectKeyIdentifier", "DER:0400", 0xFF, hash}};  // empty: as if there were none
  for (const auto& [extension, value, usage, keyId] : kCases) {
    const CertificateHandle certificate = made({.extensions = {{extension, value}}});
    ASSERT_TRUE(certificate) << value;
    EXPECT_EQ(certificate->keyUsage, usage) << value;
    EXPECT_EQ(certificate->rawKeyUsage, usage) << value;
    EXPECT_EQ(certificate->keyUsagePresent != PR_FALSE, extension == "keyUsage") << value;
    EXPECT_EQ(text(certificate->subjectKeyID), keyId) << value;
  }
}

/// The addresses C@b and D@b, and a directory name of mail E@b and emailAddress F@b.
constexpr char kAlternativeNames[] =
    "DER:303781034340628103444062a42b302931133011060a0992268993f22c6401031603454062"
    "3112301006092a864886f70d0109011603464062";

TEST_F(CertificateDecoding, GathersEmailAddressesInOrder) {
  const auto alternative = [](std::string value) {
    return CertificateFields{.extensions = {{"subjectAltName", std::move(value)}}};
  };
  const std::pair<CertificateFields, std::string> kCases[]{
      {{.subject = {{"mail", "Second@A.test"}, {"emailAddress", "First@A.test"}},
        .extensions = {{"subjectAltName", kAlternativeNames}}},
       "first@a.test,second@a.test,c@b,d@b,f@b,e@b,"},
      {{.subject = {{"emailAddress", "One@A.test"}, {"emailAddress", "Two@A.test"}},
        .extensions = {{"subjectAltName", "DNS:d.test,IP:1.2.3.4,email:One@A.test"}}},
       "one@a.test,one@a.test,"},
      {alternative("DER:30088103610a62810163"), "a\\0ab,c,"},
      // In a directory name, one that is a number and has no text.
      {alternative("DER:3019a41430123110300e06092a864886f70d010901020105810163"), "c,"},
      // Escapes grow, so a text can outgrow the certificate and is left out.
      {alternative("DER:308207d7818207d0" + test_support::hex(std::string(2000, '\n')) + "810163"),
       "c,"}};
  for (const auto& [fields, expected] : kCases) {
    EXPECT_EQ(joined(made(fields)->emailAddr), expected);
  }
  // The space is the length of the DER, or 2000, and must exceed the address and its terminator.
  const std::string large(1988, 'x');
  const CertificateHandle certificate =
      made({.subject = {{"emailAddress", "eight@b"}},
            .extensions = {{"subjectAltName", "email:" + large + ",email:cc,email:c"}}});
  for (const auto& [space, further] :
       {std::pair(8U, ""s), {1999U, large + ","}, {2000U, large + ",c,"}, {0U, large + ",c,"}}) {
    certificate->derCert.len = space;
    EXPECT_EQ(joined(certificate::cert_GetCertificateEmailAddresses(certificate.get())),
              "eight@b," + further);
  }
}

TEST_F(CertificateDecoding, FindsTheFirstElementOfATagOnTheHeapToo) {
  const CertificateHandle certificate = made({.subject = {{"CN", "\xC3\xA9"}, {"CN", "b"}}});
  const auto element = [&](SECOidTag tag) {
    return NssText(certificate::CERT_GetNameElement(nullptr, &certificate->subject, tag));
  };
  EXPECT_STREQ(element(SEC_OID_AVA_COMMON_NAME).get(), "\\c3\\a9");
  EXPECT_EQ(element(SEC_OID_AVA_COUNTRY_NAME), nullptr);
}

TEST_F(CertificateDecoding, RefusesEveryTruncation) {
  const std::string der = makeCertificate({.extensions = {{"subjectKeyIdentifier", "hash"}}});
  for (std::size_t at = 0; at < der.size(); ++at) EXPECT_FALSE(decode(der.substr(0, at))) << at;
}

}  // namespace
