#include "signing/CertificateDecoding.h"

#include <gtest/gtest.h>
#include <prtime.h>

#include "tests/signing/ServiceFixture.h"

namespace {

using test_support::CertificateFields;
using test_support::makeCertificate;

/// NSS runs while the service lives.
class CertificateDecoding : public ServiceTest {
 protected:
  static CertificateHandle decode(const std::string& der, bool copyDER = true,
                                  const char* nickname = nullptr) {
    // Exactly as long as the certificate, so that a sanitizer sees a read behind its end.
    bytes.assign(der.begin(), der.end());
    bytes.shrink_to_fit();
    const SECItem item{siBuffer, bytes.data(), static_cast<unsigned int>(bytes.size())};
    return certificate::CERT_DecodeDERCertificate(item, copyDER, nickname);
  }

  static inline std::vector<unsigned char> bytes;
  std::unique_ptr<Service> service = authorizedService();
};

std::string text(const SECItem& item) {
  return {reinterpret_cast<const char*>(item.data), item.len};
}

TEST_F(CertificateDecoding, FillsTheRecord) {
  const std::string der = makeCertificate({});
  const CertificateHandle shared = decode(der, false);
  ASSERT_TRUE(shared);
  EXPECT_EQ(shared->derCert.data, bytes.data());
  EXPECT_EQ(shared->nickname, nullptr);
  const CertificateHandle copied = decode(der, true, "Certificado");
  ASSERT_TRUE(copied);
  bytes.assign(bytes.size(), 0);  // the copy does not point here
  EXPECT_EQ(text(copied->derCert), der);
  EXPECT_STREQ(copied->nickname, "Certificado");
  EXPECT_STREQ(copied->subjectName, "CN=Signer,C=CR");
  EXPECT_STREQ(copied->issuerName, "CN=Test Authority");
  EXPECT_EQ(text(copied->subjectKeyID), test_support::publicKeySha1());
  EXPECT_EQ(copied->emailAddr, nullptr);
  EXPECT_EQ(copied->referenceCount, 1);
  EXPECT_EQ(CERT_CheckCertValidTimes(copied.get(), PR_Now(), PR_FALSE), secCertTimeValid);
}

TEST_F(CertificateDecoding, ReadsKeyUsageFromTheFirstByteAlone) {
  const std::pair<const char*, unsigned int> kCases[]{
      {"digitalSignature,nonRepudiation", 0xC0},
      {"digitalSignature", 0x80},
      {"keyAgreement,decipherOnly", 0x08},
      {"DER:030200FF", 0xFF},
      {"DER:030100", 0}};  // a bit string without a byte
  for (const auto& [usage, expected] : kCases) {
    const CertificateHandle certificate =
        decode(makeCertificate({.extensions = {{"keyUsage", usage}}}));
    ASSERT_TRUE(certificate) << usage;
    EXPECT_EQ(certificate->keyUsage, expected) << usage;
    EXPECT_EQ(certificate->rawKeyUsage, expected) << usage;
    EXPECT_EQ(certificate->keyUsagePresent, PR_TRUE) << usage;
  }
  const CertificateHandle certificate = decode(makeCertificate({.extensions = {}}));
  ASSERT_TRUE(certificate);
  EXPECT_EQ(certificate->keyUsage, 255U);
  EXPECT_EQ(certificate->keyUsagePresent, PR_FALSE);
}

TEST_F(CertificateDecoding, TakesTheKeyIdentifierOfTheExtension) {
  const std::pair<const char*, std::string> kCases[]{
      {"DER:0403010203", "\x01\x02\x03"},
      {"DER:0400", test_support::publicKeySha1()}};  // empty: as if there were none
  for (const auto& [value, expected] : kCases) {
    const CertificateHandle certificate =
        decode(makeCertificate({.extensions = {{"subjectKeyIdentifier", value}}}));
    ASSERT_TRUE(certificate) << value;
    EXPECT_EQ(text(certificate->subjectKeyID), expected) << value;
  }
}

TEST_F(CertificateDecoding, GathersEmailAddressesInOrder) {
  const std::string longAddress(2000, 'x');
  const std::pair<CertificateFields, std::string> kCases[]{
      {{.subject = {{"mail", "Second@A.test"}, {"emailAddress", "First@A.test"}},
        .alternativeEmails = {"First@A.test", "Third@A.test"},
        .alternativeDirectoryName = {{"mail", "Fifth@A.test"}, {"emailAddress", "Fourth@A.test"}}},
       "first@a.test,second@a.test,first@a.test,third@a.test,fourth@a.test,fifth@a.test,"},
      {{.subject = {{"emailAddress", "One@A.test"}, {"emailAddress", "Two@A.test"}}},
       "one@a.test,"},
      // Never longer than the certificate, so each fits; control bytes are escaped.
      {{.alternativeEmails = {longAddress, "a\nb", "c"}}, longAddress + ",a\\0ab,c,"},
      // Escapes grow, so a text can outgrow the certificate and is left out.
      {{.alternativeEmails = {std::string(2000, '\n'), "c"}}, "c,"}};
  for (const auto& [fields, expected] : kCases) {
    const CertificateHandle certificate = decode(makeCertificate(fields));
    ASSERT_TRUE(certificate);
    ASSERT_NE(certificate->emailAddr, nullptr);
    std::string joined;
    for (const char* each = certificate->emailAddr; *each != '\0';) {
      joined += std::string(each) + ",";
      each += std::char_traits<char>::length(each) + 1;
    }
    EXPECT_EQ(joined, expected);
  }
}

TEST_F(CertificateDecoding, FindsTheFirstElementOfATagOnTheHeapToo) {
  const CertificateHandle certificate =
      decode(makeCertificate({.subject = {{"O", "a"}, {"CN", "\xC3\xA9"}, {"CN", "b"}}}));
  ASSERT_TRUE(certificate);
  const NssText name(
      certificate::CERT_GetNameElement(nullptr, &certificate->subject, SEC_OID_AVA_COMMON_NAME));
  EXPECT_STREQ(name.get(), "\\c3\\a9");
  EXPECT_EQ(
      certificate::CERT_GetNameElement(nullptr, &certificate->subject, SEC_OID_AVA_COUNTRY_NAME),
      nullptr);
}

TEST_F(CertificateDecoding, DamagedCertificatesNeitherCrashNorLeak) {
  const std::string der = makeCertificate(
      {.subject = {{"emailAddress", "a@b.test"}},
       .alternativeEmails = {"c@d.test"},
       .alternativeDirectoryName = {{"mail", "e@f.test"}},
       .extensions = {{"keyUsage", "digitalSignature"}, {"subjectKeyIdentifier", "hash"}}});
  for (std::size_t length = 0; length < der.size(); ++length) {
    EXPECT_FALSE(decode(der.substr(0, length))) << length;
  }
  unsigned int decoded = 0;
  for (std::size_t at = 0; at < der.size(); ++at) {
    for (const char damage : {'\0', '\x7F', '\xFF'}) {
      std::string damaged = der;
      damaged[at] = damage;
      decoded += decode(damaged) ? 1 : 0;
    }
  }
  EXPECT_GT(decoded, 0U);  // damage in the signature, say, is not seen here
}

}  // namespace
